#pragma once
// Files in the formats the readers take and the writers make, written and read by hand so that a
// test does not trust the code it checks: gzip and zlib streams, NIfTI files, binary PLY meshes.
#include "TestFiles.h"
#include "TestSurfaces.h"

#include <gtest/gtest.h>

#include <zlib.h>

#include <cstdint>
#include <cstring>
#include <sstream>
#include <string>
#include <vector>

namespace vxtest {

// A gzip (windowBits 31) or zlib (15) stream of the bytes.
inline std::string deflated(const std::string& bytes, int windowBits = 31)
{
    z_stream z = {};
    deflateInit2(&z, 6, Z_DEFLATED, windowBits, 8, Z_DEFAULT_STRATEGY);
    std::string out(deflateBound(&z, uLong(bytes.size())) + 64, '\0');
    z.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(bytes.data()));
    z.avail_in = uInt(bytes.size());
    z.next_out = reinterpret_cast<Bytef*>(&out[0]);
    z.avail_out = uInt(out.size());
    deflate(&z, Z_FINISH);
    out.resize(z.total_out);
    deflateEnd(&z);
    return out;
}

// Everything a NIfTI file says, in either version. Values are kept in native order; swap writes
// the header and the values in the other order.
struct NiftiFile
{
    int version = 1;
    bool swap = false;
    bool pair = false; // .hdr and .img instead of one .nii
    bool gz = false;
    int datatype = 16;
    int bitpix = -1; // -1: from the datatype
    int64_t dim[8] = {3, 5, 4, 3, 1, 1, 1, 1};
    double pixdim[8] = {1, 1, 1, 1, 0, 0, 0, 0};
    double voxOffset = -1; // -1: right behind the header (0 for a pair)
    double slope = 0, inter = 0;
    int qform = 0, sform = 0;
    double quatern[3] = {0, 0, 0}, qoffset[3] = {0, 0, 0};
    double srow[3][4] = {{1, 0, 0, 0}, {0, 1, 0, 0}, {0, 0, 1, 0}};
    std::string values; // raw bytes, native order
    std::string magic;  // replaces the signature when set

    int typeBytes() const
    {
        return datatype == 2 || datatype == 256   ? 1
               : datatype == 4 || datatype == 512 ? 2
               : datatype == 64                   ? 8
                                                  : 4;
    }
    // Placed by an sform that scales by the spacing and moves to the origin.
    void place(const double spacing[3], const double origin[3])
    {
        sform = 1;
        for (int r = 0; r < 3; ++r) {
            pixdim[r + 1] = srow[r][r] = spacing[r];
            srow[r][3] = origin[r];
        }
    }
};

// The header as the two published layouts place it.
inline std::string niftiHeader(const NiftiFile& f)
{
    const int bitpix = f.bitpix >= 0 ? f.bitpix : 8 * f.typeBytes();
    std::string b(f.version == 1 ? 348 : 540, '\0');
    auto put = [&](std::size_t at, auto v) {
        const std::string s(reinterpret_cast<const char*>(&v), sizeof v);
        b.replace(at, sizeof v, f.swap ? byteSwapped(s, sizeof v) : s);
    };
    const bool v1 = f.version == 1;
    const std::string magic = !f.magic.empty() ? f.magic
                              : v1             ? std::string(f.pair ? "ni1" : "n+1", 4)
                                   : std::string(f.pair ? "ni2\0\r\n\032\n" : "n+2\0\r\n\032\n", 8);
    b.replace(v1 ? 344 : 4, magic.size(), magic);
    // Version 1 stores shorts and floats, version 2 64-bit integers and doubles.
    auto integer = [&](std::size_t at1, std::size_t at2, int64_t v) {
        v1 ? put(at1, int16_t(v)) : put(at2, v);
    };
    auto real = [&](std::size_t at1, std::size_t at2, double v) { v1 ? put(at1, float(v)) : put(at2, v); };
    put(0, int32_t(b.size()));
    for (std::size_t i = 0; i < 8; ++i) {
        integer(40 + 2 * i, 16 + 8 * i, f.dim[i]);
        real(76 + 4 * i, 104 + 8 * i, f.pixdim[i]);
    }
    v1 ? put(70, int16_t(f.datatype)) : put(12, int16_t(f.datatype));
    v1 ? put(72, int16_t(bitpix)) : put(14, int16_t(bitpix));
    v1 ? put(108, float(f.voxOffset)) : put(168, int64_t(f.voxOffset));
    real(112, 176, f.slope);
    real(116, 184, f.inter);
    v1 ? put(252, int16_t(f.qform)) : put(344, int32_t(f.qform));
    v1 ? put(254, int16_t(f.sform)) : put(348, int32_t(f.sform));
    for (std::size_t i = 0; i < 3; ++i) {
        real(256 + 4 * i, 352 + 8 * i, f.quatern[i]);
        real(268 + 4 * i, 376 + 8 * i, f.qoffset[i]);
        for (std::size_t c = 0; c < 4; ++c) real(280 + 16 * i + 4 * c, 400 + 32 * i + 8 * c, f.srow[i][c]);
    }
    return b;
}

// Writes f under base (.nii[.gz] or .hdr + .img[.gz]); returns the header's name.
inline std::string writeNifti(NiftiFile f, const std::string& base)
{
    if (f.voxOffset < 0) f.voxOffset = f.pair ? 0 : f.version == 1 ? 352 : 544;
    const std::size_t start = f.pair ? 0 : f.version == 1 ? 348 : 540;
    const std::string header = niftiHeader(f),
                      values = std::string(std::size_t(std::max(0.0, f.voxOffset - double(start))), 'x') +
                               (f.swap ? byteSwapped(f.values, std::size_t(f.typeBytes())) : f.values);
    auto packed = [&](const std::string& bytes) { return f.gz ? deflated(bytes) : bytes; };
    const std::string gz = f.gz ? ".gz" : "";
    if (!f.pair) {
        spit(base + ".nii" + gz, packed(header + values));
        return base + ".nii" + gz;
    }
    spit(base + ".hdr", header);
    spit(base + ".img" + gz, packed(values));
    return base + ".hdr";
}

// The binary PLY the surface writer makes, read back: the exact header for its counts, then the
// vertices with their normals (when the surface has them) and the triangles.
inline TestMesh readPly(const std::string& b)
{
    std::size_t nv = 0, nt = 0;
    std::sscanf(b.c_str() + std::min(b.size(), b.find("element vertex")), "element vertex %zu", &nv);
    std::sscanf(b.c_str() + std::min(b.size(), b.find("element face")), "element face %zu", &nt);
    const bool normals = b.find("property float nx") < b.find("end_header");
    const std::string header =
        "ply\nformat binary_little_endian 1.0\ncomment written by vxiso\nelement vertex " +
        std::to_string(nv) + "\nproperty float x\nproperty float y\nproperty float z\n" +
        (normals ? "property float nx\nproperty float ny\nproperty float nz\n" : "") + "element face " +
        std::to_string(nt) + "\nproperty list uchar int vertex_indices\nend_header\n";
    const std::size_t vertexBytes = normals ? 24 : 12;
    TestMesh m;
    EXPECT_EQ(b.substr(0, header.size()), header);
    if (b.size() != header.size() + vertexBytes * nv + 13 * nt)
        return ADD_FAILURE() << "PLY of the wrong size", m;
    const char* p = b.data() + header.size();
    for (std::size_t i = 0; i < nv; ++i, p += vertexBytes) {
        float v[6];
        std::memcpy(v, p, vertexBytes);
        m.coords.insert(m.coords.end(), v, v + 3);
        if (normals) m.normals.insert(m.normals.end(), v + 3, v + 6);
    }
    for (std::size_t t = 0; t < nt; ++t, p += 13) {
        int32_t c[3];
        std::memcpy(c, p + 1, sizeof c);
        EXPECT_EQ(p[0], 3) << "face " << t;
        m.triangles.insert(m.triangles.end(), c, c + 3);
    }
    return m;
}

// The smallest box around the mesh's vertices.
inline KxBox3f boundsOf(const TestMesh& m)
{
    float b[6] = {1e30f, -1e30f, 1e30f, -1e30f, 1e30f, -1e30f};
    for (std::size_t i = 0; i < m.coords.size(); ++i) {
        b[2 * (i % 3)] = std::min(b[2 * (i % 3)], m.coords[i]);
        b[2 * (i % 3) + 1] = std::max(b[2 * (i % 3) + 1], m.coords[i]);
    }
    return KxBox3f(b[0], b[1], b[2], b[3], b[4], b[5]);
}

// Runs tests/io/vtk_files.py, VTK's own readers and writers; empty when python3 with VTK is not there.
inline std::string runVtk(const std::string& args)
{
    return runPython("vtkmodules.vtkIOImage", VXISO_SOURCE_DIR "/tests/io/vtk_files.py " + args);
}

// What the script prints for a mesh: points, normals, then the cells, one a line; their point
// indices go to triangles, one after the other, and their lengths to sizes.
inline TestMesh parseVtkMesh(const std::string& text, std::vector<int>* sizes = nullptr)
{
    std::istringstream in(text);
    TestMesh m;
    std::string word;
    std::size_t n = 0;
    for (std::vector<float>* v : {&m.coords, &m.normals}) {
        in >> word >> n;
        v->resize(3 * n);
        for (float& x : *v) in >> x;
    }
    in >> word >> n;
    EXPECT_EQ(word, "cells") << text.substr(0, 2000);
    std::getline(in, word);
    for (std::string row; n > 0 && std::getline(in, row); --n) {
        std::istringstream cell(row);
        const std::size_t before = m.triangles.size();
        for (int32_t i; cell >> i;) m.triangles.push_back(i);
        if (sizes) sizes->push_back(int(m.triangles.size() - before));
    }
    EXPECT_EQ(n, 0u) << text.substr(0, 2000);
    return m;
}

} // namespace vxtest
