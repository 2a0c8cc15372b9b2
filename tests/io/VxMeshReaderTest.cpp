// Unstructured meshes: VTK legacy and XML files as VTK's own writers make them, read back as VTK
// reads them; Gmsh meshes made by gmsh in both formats and encodings, with fields checked against
// the node positions; layouts the writers here do not make, by hand; damaged files refused with
// one clear line.
#include "../support/TestFormats.h"

#include <io/VxUnstructuredMesh.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <functional>
#include <map>
#include <sstream>

using namespace vxtest;
using Mesh = VxUnstructuredMesh;

namespace {

class MeshReader : public TempDirTest
{
protected:
    std::unique_ptr<Mesh> read(const std::string& name, const std::string& field = "")
    {
        error.clear();
        return readUnstructuredMesh(qpath(name), QString::fromStdString(field), &error);
    }
    QString error;
};

// What tests/io/vtk_files.py prints for one grid.
struct VtkGrid
{
    std::vector<double> points;
    std::vector<std::vector<int64_t>> cells; // type, then nodes
    struct Field
    {
        std::string name;
        bool perCell;
        std::vector<double> values;
    };
    std::vector<Field> fields;
};

std::vector<VtkGrid> parseGrids(const std::string& out)
{
    std::vector<VtkGrid> grids;
    std::istringstream in(out);
    std::string line, word;
    while (std::getline(in, line)) {
        std::istringstream row(line);
        std::size_t n = 0;
        word.clear();
        row >> word >> n;
        if (word == "points") {
            grids.emplace_back();
            grids.back().points.resize(3 * n);
            for (double& x : grids.back().points) in >> x;
        } else if (word == "cells") {
            for (std::size_t c = 0; c < n && std::getline(in, line); ++c) {
                std::istringstream cell(line);
                grids.back().cells.emplace_back();
                for (int64_t i; cell >> i;) grids.back().cells.back().push_back(i);
            }
        } else if (word == "field") {
            std::string where;
            std::istringstream(line) >> word >> word >> where >> n;
            grids.back().fields.push_back({word, where == "cell", std::vector<double>(n)});
            for (double& x : grids.back().fields.back().values) in >> x;
        }
    }
    return grids;
}

// Base64 as the XML files carry it.
std::string base64(const std::string& b)
{
    static const char* digits = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string out;
    for (std::size_t i = 0; i < b.size(); i += 3) {
        const std::size_t n = std::min<std::size_t>(3, b.size() - i);
        uint32_t v = 0;
        for (std::size_t k = 0; k < 3; ++k) v = v << 8 | (k < n ? uint8_t(b[i + k]) : 0u);
        for (std::size_t k = 0; k < 4; ++k) out += k <= n ? digits[v >> (18 - 6 * k) & 63] : '=';
    }
    return out;
}

template <class T> std::string bytesOf(const std::vector<T>& v)
{
    return std::string(reinterpret_cast<const char*>(v.data()), v.size() * sizeof(T));
}

} // namespace

// 15 layouts of VTK's legacy and XML writers (text, binary, appended raw and base64, zlib in small
// blocks, 64-bit headers, big-endian) x tetrahedra and hexahedra, each with a vertex and a boundary
// face before the solids. Every one-component field, by name, holds what VTK reads, the kept cells
// are VTK's solids in order, and without a name the first node field is taken.
TEST_F(MeshReader, FilesWrittenByVtkReadAsVtkReadsThem)
{
    std::vector<std::string> kinds;
    std::istringstream names(
        "vtk-ascii vtk-binary vtk42-ascii vtk42-binary vtu-ascii vtu-binary vtu-appended "
        "vtu-base64 vtu-binary-zlib vtu-appended-zlib vtu-base64-zlib vtu-binary-u64 "
        "vtu-appended-zlib-u64-big vtu-base64-u64-big vtu-binary-zlib-big");
    for (std::string kind; names >> kind;) kinds.push_back(kind);
    for (const std::string shape : {"tet", "hex"}) {
        std::string args = "grid " + shape;
        std::vector<std::string> files;
        for (const std::string& kind : kinds) {
            files.push_back(shape + "-" + kind + (kind[2] == 'u' ? ".vtu" : ".vtk"));
            args += " " + kind + " " + path(files.back());
        }
        const std::string out = runVtk(args);
        if (out.empty()) GTEST_SKIP() << "python3 with vtk is not available; install python3-vtk9";
        const std::vector<VtkGrid> grids = parseGrids(out);
        ASSERT_EQ(grids.size(), files.size()) << out.substr(0, 2000);
        for (std::size_t f = 0; f < files.size(); ++f) {
            const VtkGrid& g = grids[f];
            const std::string& file = files[f];
            const auto first = read(file);
            ASSERT_TRUE(first) << error.toStdString();
            EXPECT_EQ(first->fieldName, "temperature") << file;
            std::vector<std::string> others = first->otherFields; // in file order, which differs
            std::sort(others.begin(), others.end());
            EXPECT_EQ(others, (std::vector<std::string>{"label", "material", "pressure"})) << file;
            EXPECT_EQ(first->format, file.back() == 'u' ? "VTK XML" : "VTK legacy");
            ASSERT_EQ(first->points.size(), g.points.size()) << file;
            for (std::size_t i = 0; i < g.points.size(); ++i)
                EXPECT_EQ(first->points[i], float(g.points[i])) << file;
            std::vector<int32_t> solids;
            std::vector<bool> kept;
            for (const auto& c : g.cells) {
                kept.push_back(c[0] == 10 || c[0] == 12);
                if (kept.back()) solids.insert(solids.end(), c.begin() + 1, c.end());
            }
            EXPECT_EQ(first->cells, solids) << file;
            EXPECT_EQ(first->skippedCells, 2) << file;
            EXPECT_EQ(first->cellType,
                      shape == "tet" ? Mesh::CellType::Tetrahedron : Mesh::CellType::Hexahedron);
            for (const VtkGrid::Field& field : g.fields) {
                const auto m = read(file, field.name);
                ASSERT_TRUE(m) << file << " " << field.name << ": " << error.toStdString();
                EXPECT_EQ(m->association, field.perCell ? Mesh::Association::Cell : Mesh::Association::Node);
                std::vector<float> want;
                for (std::size_t i = 0; i < field.values.size(); ++i)
                    if (!field.perCell || kept[i]) want.push_back(float(field.values[i]));
                EXPECT_EQ(m->values, want) << file << " " << field.name;
            }
        }
    }
}

// Gmsh meshes a box into tetrahedra and a transfinite one into 27 hexahedra; a node field (the
// distance to the origin) and an element field (half the element's tag) go in as text, then gmsh
// itself writes them in formats 2.2 and 4.1, text and binary. Each reads as the same mesh, with the
// node values matching the node positions and the cell values the solids' tags.
TEST_F(MeshReader, MeshesWrittenByGmshInEveryFormat)
{
    if (std::system("gmsh -version >/dev/null 2>&1") != 0) GTEST_SKIP() << "gmsh is not installed";
    spit(path("tet.geo"), "Point(1) = {0, 0, 0, 0.4}; Point(2) = {1, 0, 0, 0.4};\nLine(1) = {1, 2};\n"
                          "Extrude {0, 1, 0} { Line{1}; }\nExtrude {0, 0, 1} { Surface{5}; }\n");
    spit(path("hex.geo"),
         "Point(1) = {0, 0, 0}; Point(2) = {1, 0, 0};\nLine(1) = {1, 2};\nTransfinite Line{1} = 4;\n"
         "Extrude {0, 1, 0} { Line{1}; Layers{3}; Recombine; }\n"
         "Extrude {0, 0, 1} { Surface{5}; Layers{3}; Recombine; }\n");
    for (const std::string shape : {"tet", "hex"}) {
        const std::string base = path(shape);
        ASSERT_EQ(std::system(
                      ("gmsh -3 " + base + ".geo -format msh22 -o " + base + ".msh >/dev/null 2>&1").c_str()),
                  0);
        // Our own reading of gmsh's text: node tags and positions, element tags.
        std::istringstream in(slurp(base + ".msh"));
        std::string line, nodeData, elementData;
        std::vector<float> halves; // of the solids' tags, in file order
        std::size_t n = 0;
        while (std::getline(in, line) && line != "$Nodes") continue;
        in >> n;
        for (std::size_t i = 0; i < n; ++i) {
            double tag, x, y, z;
            in >> tag >> x >> y >> z;
            nodeData +=
                std::to_string(int64_t(tag)) + " " + std::to_string(std::sqrt(x * x + y * y + z * z)) + "\n";
        }
        while (std::getline(in, line) && line != "$Elements") continue;
        std::size_t elements = 0;
        in >> elements;
        std::getline(in, line);
        for (std::size_t i = 0; i < elements && std::getline(in, line); ++i) {
            int64_t tag = 0, type = 0;
            std::istringstream(line) >> tag >> type;
            if (type == 4 || type == 5) halves.push_back(0.5f * float(tag));
            elementData += std::to_string(tag) + " " + std::to_string(0.5 * double(tag)) + "\n";
        }
        auto data = [&](const char* section, const char* name, std::size_t rows, const std::string& body) {
            return std::string("$") + section + "\n1\n\"" + name + "\"\n1\n0\n3\n0\n1\n" +
                   std::to_string(rows) + "\n" + body + "$End" + section + "\n";
        };
        spit(base + "-data.msh", slurp(base + ".msh") + data("NodeData", "distance", n, nodeData) +
                                     data("ElementData", "half", elements, elementData));
        std::string script = "Merge \"" + base + "-data.msh\";\n";
        std::vector<std::string> files;
        for (const char* version : {"2.2", "4.1"})
            for (int binary : {0, 1})
                for (int view : {0, 1}) {
                    files.push_back(shape + "-" + version + "-" + std::to_string(binary) +
                                    std::to_string(view) + ".msh");
                    script += std::string("Mesh.MshFileVersion = ") + version +
                              ";\nMesh.Binary = " + std::to_string(binary) + ";\nSave View[" +
                              std::to_string(view) + "] \"" + path(files.back()) + "\";\n";
                }
        spit(base + "-save.geo", script);
        ASSERT_EQ(std::system(("gmsh " + base + "-save.geo - >/dev/null 2>&1").c_str()), 0);
        const auto reference = read(shape + "-data.msh");
        ASSERT_TRUE(reference) << error.toStdString();
        EXPECT_EQ(reference->otherFields, std::vector<std::string>{"half"});
        EXPECT_TRUE(shape == "tet" || reference->cellCount() == 27) << reference->cellCount();
        EXPECT_GT(reference->skippedCells, 0);
        // Gmsh's hexahedra in VTK's order: 0..3 a parallelogram in cyclic order, each of 4..7 one
        // and the same step above 0..3.
        for (int64_t c = 0; shape == "hex" && c < reference->cellCount(); ++c) {
            auto at = [&](int k, int a) {
                return reference->points[3 * std::size_t(reference->cells[8 * c + k]) + a];
            };
            for (int a = 0; a < 3; ++a) {
                EXPECT_NEAR(at(0, a) + at(2, a), at(1, a) + at(3, a), 1e-6) << "hexahedron " << c;
                for (int k = 1; k < 4; ++k)
                    EXPECT_NEAR(at(k + 4, a) - at(k, a), at(4, a) - at(0, a), 1e-6) << c;
            }
        }
        for (const std::string& file : files) {
            const auto m = read(file);
            ASSERT_TRUE(m) << error.toStdString();
            EXPECT_EQ(m->format, file.find("2.2") != std::string::npos ? "Gmsh 2.2" : "Gmsh 4.1") << file;
            EXPECT_EQ(m->cellType, reference->cellType) << file;
            EXPECT_EQ(m->cells, reference->cells) << file;
            EXPECT_EQ(m->points, reference->points) << file;
            const bool perCell = file[file.size() - 5] == '1';
            EXPECT_EQ(m->fieldName, perCell ? "half" : "distance") << file;
            if (!perCell) {
                for (int64_t i = 0; i < m->nodeCount(); ++i) {
                    const float* p = &m->points[std::size_t(3 * i)];
                    EXPECT_NEAR(m->values[std::size_t(i)], std::sqrt(p[0] * p[0] + p[1] * p[1] + p[2] * p[2]),
                                1e-5)
                        << file;
                }
            } else {
                EXPECT_EQ(m->values, halves) << file;
            }
        }
    }
}

namespace {

// Two hexahedra side by side on 12 nodes (node x + 3y + 6z at (x, y, z)), and their fields.
const std::vector<int32_t> kHexes = {0, 1, 4, 3, 6, 7, 10, 9, 1, 2, 5, 4, 7, 8, 11, 10};
const std::vector<float> kNodeValues = {-2, -0.5, 1, 2.5, 4, 5.5, 7, 8.5, 10, 11.5, 13, 14.5};
const std::vector<int16_t> kCellValues = {7, -3};

std::vector<float> boxPoints()
{
    std::vector<float> p;
    for (int i = 0; i < 12; ++i) p.insert(p.end(), {float(i % 3), float(i / 3 % 2), float(i / 6)});
    return p;
}

template <class T> std::string text(const std::vector<T>& v)
{
    std::ostringstream out;
    for (const T& x : v) out << +x << " ";
    return out.str();
}

// A .vtu of the box whose arrays are given by encode(bytes): their DataArray attributes and text.
std::string vtu(const std::string& vtkFileAttributes,
                const std::function<std::string(const std::string&)>& encode)
{
    const std::vector<uint8_t> types = {12, 12};
    const std::vector<int32_t> offsets = {8, 16};
    auto array = [&](const char* type, const char* name, int comps, const std::string& bytes) {
        return std::string("<DataArray type=\"") + type + "\" Name=\"" + name + "\" NumberOfComponents=\"" +
               std::to_string(comps) + "\" " + encode(bytes) + "</DataArray>\n";
    };
    return "<?xml version=\"1.0\"?>\n<!-- hand-made -->\n<VTKFile type=\"UnstructuredGrid\" "
           "version=\"1.0\" " +
           vtkFileAttributes + ">\n<UnstructuredGrid>\n<Piece NumberOfPoints=\"12\" NumberOfCells=\"2\">\n" +
           "<PointData Scalars='v'>" + array("Float32", "v", 1, bytesOf(kNodeValues)) +
           "</PointData>\n<CellData>" + array("Int16", "c &amp; d", 1, bytesOf(kCellValues)) +
           "</CellData>\n<Points>" + array("Float32", "Points", 3, bytesOf(boxPoints())) +
           "</Points>\n<Cells>" + array("Int32", "connectivity", 1, bytesOf(kHexes)) +
           array("Int32", "offsets", 1, bytesOf(offsets)) + array("UInt8", "types", 1, bytesOf(types)) +
           "</Cells>\n</Piece>\n</UnstructuredGrid>\n</VTKFile>\n";
}

// zlib blocks of 16 bytes as vtkZLibDataCompressor lays them out: the header, then the blocks.
std::pair<std::string, std::string> zlibBlocks(const std::string& bytes)
{
    std::vector<uint32_t> header = {uint32_t((bytes.size() + 15) / 16), 16, uint32_t(bytes.size() % 16)};
    std::string blocks;
    for (std::size_t at = 0; at < bytes.size(); at += 16) {
        const std::string z = deflated(bytes.substr(at, 16), 15);
        header.push_back(uint32_t(z.size()));
        blocks += z;
    }
    return {bytesOf(header), blocks};
}

// A Gmsh 2.2 binary file of the box in the host's or the other byte order: nodes tagged 1000,
// 2000, ..., a boundary quad, the two hexahedra, and the node field "v".
std::string gmshBinary(bool swap)
{
    auto put = [&](auto v) {
        const std::string s(reinterpret_cast<const char*>(&v), sizeof v);
        return swap ? byteSwapped(s, sizeof v) : s;
    };
    std::string f = "$MeshFormat\n2.2 1 8\n" + put(int32_t(1)) + "\n$EndMeshFormat\n$Nodes\n12\n";
    const std::vector<float> p = boxPoints();
    for (int i = 0; i < 12; ++i)
        f += put(int32_t(1000 * (i + 1))) + put(double(p[3 * i])) + put(double(p[3 * i + 1])) +
             put(double(p[3 * i + 2]));
    f += "$EndNodes\n$Elements\n3\n" + put(int32_t(3)) + put(int32_t(1)) + put(int32_t(2)) + put(int32_t(1)) +
         put(int32_t(0)) + put(int32_t(0));
    for (int n : {1, 2, 3, 4}) f += put(int32_t(1000 * n));
    f += put(int32_t(5)) + put(int32_t(2)) + put(int32_t(0));
    for (int c = 0; c < 2; ++c) {
        f += put(int32_t(10 + c));
        for (int k = 0; k < 8; ++k) f += put(int32_t(1000 * (kHexes[std::size_t(8 * c + k)] + 1)));
    }
    f += "\n$EndElements\n$NodeData\n1\n\"v\"\n1\n0.5\n3\n0\n1\n12\n";
    for (int i = 0; i < 12; ++i) f += put(int32_t(1000 * (i + 1))) + put(double(kNodeValues[std::size_t(i)]));
    return f + "\n$EndNodeData\n";
}

} // namespace

// What VTK's writers do not make: base64 of a header and data in one stream or in two (as meshio
// writes them), zlib blocks with a short last one, an escaped name; voxels turned into
// hexahedra, FIELD arrays among SCALARS; Gmsh with sparse tags, parametric nodes, a field chosen by
// name, and a binary file in the other byte order.
TEST_F(MeshReader, HandMadeLayoutsReadAlike)
{
    auto sized = [](const std::string& bytes, bool u64) {
        return u64 ? bytesOf(std::vector<uint64_t>{bytes.size()})
                   : bytesOf(std::vector<uint32_t>{uint32_t(bytes.size())});
    };
    const std::map<std::string, std::string> files = {
        {"one-stream.vtu",
         vtu("header_type=\"UInt32\"",
             [&](const std::string& b) { return "format=\"binary\">" + base64(sized(b, false) + b); })},
        {"two-streams.vtu", vtu("header_type='UInt64'",
                                [&](const std::string& b) {
                                    return "format=\"binary\">\n  " + base64(sized(b, true)) + "\n  " +
                                           base64(b) + "\n";
                                })},
        {"zlib.vtu", vtu("compressor=\"vtkZLibDataCompressor\"",
                         [&](const std::string& b) {
                             const auto [header, blocks] = zlibBlocks(b);
                             return "format=\"binary\">" + base64(header) + base64(blocks);
                         })},
        {"voxels.vtk",
         "# vtk DataFile Version 4.2\nbox\nASCII\nDATASET UNSTRUCTURED_GRID\nPOINTS 12 double\n" +
             text(boxPoints()) +
             "\nCELLS 2 18\n8 0 1 3 4 6 7 9 10\n8 1 2 4 5 7 8 10 11\nCELL_TYPES 2\n11 11\n"
             "CELL_DATA 2\nFIELD attributes 2\nflow 3 2 float\n1 2 3 4 5 6\nc 1 2 short\n7 -3\n"
             "POINT_DATA 12\nNORMALS n float\n" +
             text(std::vector<int>(36, 0)) + "\nSCALARS v float 1\nLOOKUP_TABLE default\n" +
             text(kNodeValues) + "\n"},
        {"sparse.msh",
         "$MeshFormat\n4.1 0 8\n$EndMeshFormat\n$PhysicalNames\n1\n3 1 \"$Nodes\"\n$EndPhysicalNames\n"
         "$Nodes\n2 12 1000000 12000000\n2 1 1 2\n1000000\n2000000\n0 0 0 0.5 0.5\n1 0 0 0.25 0.5\n"
         "3 1 0 10\n" +
             [] {
                 std::string s;
                 for (int i = 2; i < 12; ++i) s += std::to_string(1000000 * (i + 1)) + "\n";
                 const std::vector<float> p = boxPoints();
                 for (int i = 2; i < 12; ++i)
                     s += text(std::vector<float>(p.begin() + 3 * i, p.begin() + 3 * i + 3)) + "\n";
                 s += "$EndNodes\n$Elements\n2 3 1 3\n2 1 2 1\n1 1000000 2000000 5000000\n3 1 5 2\n";
                 for (int c = 0; c < 2; ++c) {
                     s += std::to_string(c + 2);
                     for (int k = 0; k < 8; ++k)
                         s += " " + std::to_string(1000000 * (kHexes[std::size_t(8 * c + k)] + 1));
                     s += "\n";
                 }
                 s += "$EndElements\n$NodeData\n1\n\"a\"\n0\n3\n0\n1\n1\n1000000 5\n$EndNodeData\n";
                 s += "$NodeData\n1\n\"v\"\n1\n0\n3\n0\n1\n12\n";
                 for (int i = 0; i < 12; ++i)
                     s += std::to_string(1000000 * (i + 1)) + " " +
                          text(std::vector<float>{kNodeValues[std::size_t(i)]}) + "\n";
                 return s + "$EndNodeData\n$ElementData\n1\n\"c\"\n1\n0\n3\n0\n1\n3\n1 99\n2 7\n3 "
                            "-3\n$EndElementData\n";
             }()},
        {"swapped.msh", gmshBinary(true)},
    };
    const std::vector<float> cells(kCellValues.begin(), kCellValues.end());
    for (const auto& [name, content] : files) {
        spit(path(name), content);
        for (const char* field : {"v", "c", "c & d"}) {
            const bool vtuFile = name.back() == 'u', cell = field[0] == 'c';
            if (cell && (name.find(".msh") != std::string::npos && name != "sparse.msh")) continue;
            if (cell && vtuFile != (field[1] != '\0')) continue;
            const auto m = read(name, field);
            ASSERT_TRUE(m) << name << ": " << error.toStdString();
            EXPECT_EQ(m->cellType, Mesh::CellType::Hexahedron) << name;
            EXPECT_EQ(m->points, boxPoints()) << name;
            EXPECT_EQ(m->cells, kHexes) << name;
            EXPECT_EQ(m->values, cell ? cells : kNodeValues) << name << " " << field;
            EXPECT_EQ(m->association, cell ? Mesh::Association::Cell : Mesh::Association::Node) << name;
            EXPECT_EQ(m->skippedCells, name.find(".msh") != std::string::npos ? 1 : 0) << name;
        }
    }
}

// Each damaged file gives one line naming it and what is wrong.
TEST_F(MeshReader, DamagedFilesGiveOneClearError)
{
    const std::string legacy =
        "# vtk DataFile Version 3.0\nt\nASCII\nDATASET UNSTRUCTURED_GRID\nPOINTS 5 float\n"
        "0 0 0 1 0 0 0 1 0 0 0 1 1 1 1\nCELLS 2 10\n4 0 1 2 3\n4 1 2 3 4\nCELL_TYPES 2\n10 10\n"
        "POINT_DATA 5\nSCALARS v float 1\nLOOKUP_TABLE default\n1 2 3 4 5\n";
    const std::string hexa =
        "# vtk DataFile Version 3.0\nt\nASCII\nDATASET UNSTRUCTURED_GRID\nPOINTS 12 float\n" +
        text(boxPoints()) + "\nCELLS 2 14\n8 0 1 4 3 6 7 10 9\n4 0 1 3 6\nCELL_TYPES 2\n12 10\n";
    auto with = [](std::string s, const std::string& from, const std::string& to) {
        return s.replace(s.find(from), from.size(), to);
    };
    const std::string goodVtu = vtu("", [&](const std::string& b) {
        return "format=\"binary\">" + base64(bytesOf(std::vector<uint32_t>{uint32_t(b.size())}) + b);
    });
    const std::vector<uint32_t> badBlockHeader = {1, 16, 16, 8};
    const std::string gmsh =
        "$MeshFormat\n2.2 0 8\n$EndMeshFormat\n$Nodes\n4\n1 0 0 0\n2 1 0 0\n3 0 1 0\n4 0 0 1\n"
        "$EndNodes\n$Elements\n2\n1 15 2 0 1 1\n2 4 2 0 1 1 2 3 4\n$EndElements\n"
        "$NodeData\n1\n\"d\"\n1\n0\n3\n0\n1\n4\n1 0\n2 1\n3 1\n4 1\n$EndNodeData\n";
    struct Case
    {
        std::string name, content, message;
    };
    const Case table[] = {
        {"index.vtk", with(legacy, "4 1 2 3 4", "4 1 2 3 9"),
         "cell 1 refers to node 9, but there are 5 nodes"},
        {"nodes.vtk", with(legacy, "10 10", "10 12"), "cell 1 of VTK cell type 12 lists 4 nodes, not 8"},
        {"wedge.vtk", with(legacy, "10 10", "10 13"), "cell 1 is of VTK cell type 13"},
        {"list.vtk", with(legacy, "CELLS 2 10", "CELLS 2 9"), "the cell list ends within cell 1 of 2"},
        {"types.vtk", with(legacy, "CELL_TYPES 2\n10 10", "CELL_TYPES 1\n10"),
         "CELL_TYPES gives 1 types for 2 cells"},
        {"short.vtk", with(legacy, "1 2 3 4 5", "1 2 3 4"), "ends after 4 of the 5 values"},
        {"mix.vtk", hexa + "POINT_DATA 12\nSCALARS v float\nLOOKUP_TABLE default\n" + text(kNodeValues),
         "holds both tetrahedra and hexahedra (cells 0 and 1)"},
        {"none.vtk", legacy.substr(0, legacy.find("POINT_DATA")),
         "holds no one-component node or cell field"},
        {"cut.vtk", with(legacy, "ASCII", "BINARY").substr(0, legacy.find("0 0 0 1") + 8),
         "file is too short for its 15 point coordinates"},
        {"b64.vtu", with(goodVtu, "format=\"binary\">", "format=\"binary\">A@=x"), "bad base64 data: 'A@=x'"},
        {"block.vtu",
         vtu("compressor=\"vtkZLibDataCompressor\"",
             [&](const std::string& b) {
                 const auto [header, blocks] = zlibBlocks(b);
                 if (b == bytesOf(kNodeValues))
                     return "format=\"binary\">" + base64(bytesOf(badBlockHeader)) +
                            base64(std::string(8, 'x'));
                 return "format=\"binary\">" + base64(header) + base64(blocks);
             }),
         "the array 'v': compressed block 0 of 1 is damaged"},
        {"count.vtu", with(goodVtu, "NumberOfPoints=\"12\"", "NumberOfPoints=\"11\""),
         "the array 'Points' holds 36 values, not 33"},
        {"pieces.vtu", with(goodVtu, "</UnstructuredGrid>", "<Piece/></UnstructuredGrid>"), "holds 2 pieces"},
        {"open.vtu", goodVtu.substr(0, goodVtu.find("</Cells>")), "ends inside the element 'Cells'"},
        {"offset.vtu",
         with(goodVtu, base64(bytesOf(std::vector<uint32_t>{8}) + bytesOf(std::vector<int32_t>{8, 16})),
              base64(bytesOf(std::vector<uint32_t>{8}) + bytesOf(std::vector<int32_t>{8, 17}))),
         "the offset 17 of cell 1 lies outside the 16 entries of the connectivity"},
        {"appended.vtu",
         with(with(goodVtu,
                   "format=\"binary\">" + base64(bytesOf(std::vector<uint32_t>{48}) + bytesOf(kNodeValues)),
                   "format=\"appended\" offset=\"0\">"),
              "</VTKFile>", std::string("<AppendedData encoding=\"raw\">_\x30\0\0\0abc", 37)),
         "the array 'v': its header says 48 bytes, but the file holds fewer"},
        {"node.msh", with(gmsh, "2 4 2 0 1 1 2 3 4", "2 4 2 0 1 1 2 3 77"),
         "element 2 refers to node 77, which does not exist"},
        {"missing.msh", with(gmsh, "4\n1 0\n2 1\n3 1\n4 1", "3\n1 0\n2 1\n3 1"),
         "the field 'd' has no value for node 4"},
        {"format.msh", with(gmsh, "2.2 0 8", "4.0 0 8"), "is of format 4.0; formats 2.2 and 4.1 are read"},
        {"prism.msh", with(gmsh, "2 4 2 0 1 1 2 3 4", "2 6 2 0 1 1 2 3 4 1 2"),
         "element 2 is of Gmsh type 6"},
        {"cut.msh", gmshBinary(false).substr(0, 200), "ends where a node's coordinates belongs"},
        {"mesh.dat", "solid\n", "unknown mesh format"},
    };
    for (const Case& c : table) {
        spit(path(c.name), c.content);
        EXPECT_FALSE(read(c.name)) << c.name;
        const std::string e = error.toStdString();
        EXPECT_EQ(e.substr(0, path(c.name).size() + 2), path(c.name) + ": ") << e;
        EXPECT_NE(e.find(c.message), std::string::npos) << "expected '" << c.message << "' in: " << e;
        EXPECT_EQ(e.find('\n'), std::string::npos) << e;
    }
    spit(path("named.vtk"), legacy);
    EXPECT_FALSE(read("named.vtk", "w"));
    EXPECT_NE(error.indexOf("holds no one-component field named 'w'; it holds v"), -1) << error.toStdString();
}
