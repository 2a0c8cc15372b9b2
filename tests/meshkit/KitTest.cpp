// The kit's nodes in a scene: what the contouring draws on a mesh whose lines are known, how the
// labels sit and open the lines, how the mapping colours, and that scenes read back from files.
#include <meshkit/MeshKit.h>
#include <meshkit/PoCartesianGrid2D.h>
#include <meshkit/PoLabelGeometry.h>
#include <meshkit/PoMeshContouring.h>
#include <meshkit/PoNonLinearDataMapping.h>
#include <meshkit/SoAnnoText3Property.h>

#include <oiv/SoOffscreenEGLRenderer.h>

#include <Inventor/SbViewportRegion.h>
#include <Inventor/SoDB.h>
#include <Inventor/SoInput.h>
#include <Inventor/SoOutput.h>
#include <Inventor/actions/SoGetBoundingBoxAction.h>
#include <Inventor/actions/SoSearchAction.h>
#include <Inventor/actions/SoWriteAction.h>
#include <Inventor/nodes/SoSeparator.h>

#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>

using namespace meshkit;

namespace {

// Values = distance from the centre of a 61 x 61 grid of unit steps in the plane z = 0: contour
// lines are circles.
PoCartesianGrid2D* bowl(float noValueBeyond = 1e9f)
{
    meshkit::init();
    std::vector<float> v;
    for (int r = 0; r < 61; ++r)
        for (int c = 0; c < 61; ++c) {
            const float d = std::hypot(float(c - 30), float(r - 30));
            v.push_back(c - 30 > noValueBeyond ? PoMesh::NO_VALUE : d);
        }
    auto* grid = new PoCartesianGrid2D;
    grid->grid.setGeometry({0, 0, 0}, {1, 0, 0}, {0, 1, 0}, 61, 61, v.data());
    return grid;
}

struct Scene
{
    SoSeparator* root = new SoSeparator;
    PoMeshContouring* contouring = new PoMeshContouring;
    Scene(PoMesh* mesh, std::vector<float> values)
    {
        meshkit::init();
        root->ref();
        root->addChild(mesh);
        contouring->setIsovaluesList(PbIsovaluesList(std::move(values)));
        contouring->annotIsVisible = TRUE;
        contouring->annotFontSize = 1.5f;
        root->addChild(contouring);
    }
    ~Scene() { root->unref(); }
    // Lines and labels are made when the scene is traversed.
    void traverse()
    {
        SoGetBoundingBoxAction box{SbViewportRegion()};
        box.apply(root);
    }
};

} // namespace

// Circles of radius 10, 20 and 25 in the order of the values; the periods pick the labelled ones,
// labels sit on their circle, none overlaps another, horizontal labels run along u; with the clip
// no line point lies under a label and the circles fall into as many pieces as they carry labels.
TEST(Kit, LabelsSitOnTheirLinesAndTheClipOpensThem)
{
    Scene s(bowl(), {10, 20, 25});
    s.contouring->annotMajorPeriod = 2;
    s.contouring->annotFirstPeriod = 1;
    s.contouring->annotPath = PoMeshContouring::HORIZONTAL;
    s.traverse();
    ASSERT_EQ(s.contouring->getLines().size(), 3u);
    for (std::size_t l = 0; l < 3; ++l) {
        const auto& line = s.contouring->getLines()[l];
        EXPECT_EQ(line.value, (std::vector<float>{10, 20, 25})[l]);
        EXPECT_EQ(line.points.front(), line.points.back()) << "closed";
    }
    const auto& labels = s.contouring->getLabels();
    ASSERT_GE(labels.size(), 2u);
    for (std::size_t i = 0; i < labels.size(); ++i) {
        const float r = std::hypot(labels[i].centre[0] - 30, labels[i].centre[1] - 30);
        EXPECT_TRUE(std::fabs(r - 10) < 0.05f || std::fabs(r - 25) < 0.05f)
            << "only the 1st and 3rd values: " << r;
        EXPECT_EQ(labels[i].baseline, SbVec3f(1, 0, 0));
        EXPECT_EQ(labels[i].text, std::fabs(r - 10) < 1 ? "10" : "25");
        for (std::size_t j = 0; j < i; ++j)
            EXPECT_GT((labels[i].centre - labels[j].centre).length(), labels[i].height) << "apart";
    }

    s.contouring->annotContourClip = TRUE;
    s.contouring->annotPath = PoMeshContouring::TANGENTIAL;
    s.traverse();
    std::vector<LabelCircle> circles;
    const float gap = s.contouring->annotGap.getValue();
    for (const auto& l : s.contouring->getLabels()) {
        // A tangential label on a circle runs across its radius.
        const SbVec3f radial = l.centre - SbVec3f(30, 30, 0);
        EXPECT_LT(std::fabs(l.baseline.dot(radial) / radial.length()), 0.1f);
        circles.push_back({l.centre, 0.f});
    }
    std::size_t pieces[3] = {0, 0, 0};
    for (const auto& line : s.contouring->getLines()) {
        ++pieces[line.value == 10 ? 0 : line.value == 20 ? 1 : 2];
        for (const SbVec3f& p : line.points)
            for (const auto& l : s.contouring->getLabels())
                EXPECT_GE((p - l.centre).length(), l.height * gap / 4 * 0.99f);
    }
    std::size_t on10 = 0, on25 = 0;
    for (const auto& l : s.contouring->getLabels())
        (std::hypot(l.centre[0] - 30, l.centre[1] - 30) < 15 ? on10 : on25)++;
    EXPECT_EQ(pieces[0], on10);
    EXPECT_EQ(pieces[1], 1u) << "the unlabelled circle stays whole";
    EXPECT_EQ(pieces[2], on25);
}

// Nodes without value end lines; a mesh of none, a constant one and values outside the range give
// no lines at all.
TEST(Kit, NodesWithoutValuesEndTheLines)
{
    Scene half(bowl(5), {10});
    half.traverse();
    ASSERT_EQ(half.contouring->getLines().size(), 1u);
    const auto& arc = half.contouring->getLines()[0].points;
    EXPECT_FALSE(arc.front() == arc.back());
    for (const SbVec3f& end : {arc.front(), arc.back()}) EXPECT_NEAR(end[0], 35, 1.01f);

    std::vector<float> none(100, PoMesh::NO_VALUE), flat(100, 3.f);
    for (const std::vector<float>* values : {&none, &flat}) {
        auto* grid = new PoCartesianGrid2D;
        grid->grid.setGeometry({0, 0, 0}, {1, 0, 0}, {0, 1, 0}, 10, 10, values->data());
        Scene s(grid, {3.f, -1e30f, 7.f});
        s.traverse();
        EXPECT_TRUE(s.contouring->getLines().empty());
        EXPECT_TRUE(s.contouring->getLabels().empty());
    }
}

// The mapping interpolates its table, clamps transparencies from the callbacks, and a scene written
// to a file reads back with the same grid and mapping.
TEST(Kit, MappingAndFilesKeepTheirValues)
{
    meshkit::init();
    SoSeparator* root = new SoSeparator;
    root->ref();
    root->addChild(bowl());
    auto* mapping = new PoNonLinearDataMapping;
    mapping->on = TRUE;
    mapping->minValue = 0;
    mapping->maxValue = 40;
    mapping->setFunctions([](void*, float v) { return SbColor(v / 40, 0, 1 - v / 40); },
                          [](void*, float v) { return v - 10; }, nullptr, 5);
    root->addChild(mapping);
    EXPECT_EQ(mapping->sampleValues.getNum(), 5);
    EXPECT_TRUE(mapping->getColor(15) == SbColor(0.375f, 0, 0.625f)) << "between samples 10 and 20";
    EXPECT_EQ(mapping->getColor(-5), SbColor(0, 0, 1));
    EXPECT_EQ(mapping->getTransparency(0), 0.f) << "-10 clamped";
    EXPECT_EQ(mapping->getTransparency(30), 1.f) << "20 clamped";

    SoOutput out;
    out.setBuffer(malloc(4096), 4096, realloc);
    SoWriteAction write(&out);
    write.apply(root);
    void* buffer = nullptr;
    size_t size = 0;
    out.getBuffer(buffer, size);
    SoInput in;
    in.setBuffer(buffer, size);
    SoSeparator* read = SoDB::readAll(&in);
    free(buffer);
    ASSERT_TRUE(read);
    read->ref();
    // One separator in the file reads back as that separator.
    SoSeparator* again = read;
    ASSERT_EQ(again->getNumChildren(), 2);
    ASSERT_TRUE(again->getChild(0)->isOfType(PoCartesianGrid2D::getClassTypeId()));
    EXPECT_TRUE(static_cast<PoCartesianGrid2D*>(again->getChild(0))->grid.getValue() ==
                static_cast<PoCartesianGrid2D*>(root->getChild(0))->grid.getValue());
    auto* mappingAgain = static_cast<PoNonLinearDataMapping*>(again->getChild(1));
    EXPECT_TRUE(mappingAgain->getColor(15) == mapping->getColor(15));
    read->unref();
    root->unref();
}

// The filled mesh shows the mapping's colours: a grid of values 0 on its left half and 1 on its
// right, mapped black to red, seen face-on; the label of its contour line covers pixels in its colour.
TEST(Kit, FilledMeshShowsTheMappedColours)
{
    QString why;
    if (!SoOffscreenEGLRenderer::isAvailable(&why)) GTEST_SKIP() << why.toStdString();
    meshkit::init();
    std::vector<float> v;
    for (int r = 0; r < 4; ++r)
        for (int c = 0; c < 8; ++c) v.push_back(c < 4 ? 0.f : 1.f);
    auto* grid = new PoCartesianGrid2D;
    grid->grid.setGeometry({0, 0, 0}, {1, 0, 0}, {0, 1, 0}, 8, 4, v.data());
    SoSeparator* root = new SoSeparator;
    root->ref();
    root->addChild(grid);
    auto* mapping = new PoNonLinearDataMapping;
    mapping->on = TRUE;
    mapping->setFunctions([](void*, float x) { return SbColor(x, 0, 0); }, nullptr, nullptr, 2);
    root->addChild(mapping);
    SoOffscreenEGLRenderer renderer(160, 80);
    renderer.setBackgroundColor(SbColor(0, 0, 1));
    ASSERT_TRUE(renderer.renderViewAll(root, SbVec3f(0, 0, -1)));
    const QImage picture = renderer.getImage();
    // The grid, 7 x 3 units, fills about the middle half of the picture.
    const QRgb left = picture.pixel(60, 40), right = picture.pixel(100, 40);
    EXPECT_LT(qRed(left) + qBlue(left), 20) << "value 0: black";
    EXPECT_GT(qRed(right), 235);
    EXPECT_LT(qBlue(right), 20);

    // A label in green over the line at 0.5 of a taller grid, drawn as pixels.
    std::vector<float> tall;
    for (int r = 0; r < 24; ++r)
        for (int c = 0; c < 8; ++c) tall.push_back(c < 4 ? 0.f : 1.f);
    grid->grid.setGeometry({0, 0, 0}, {1, 0, 0}, {0, 1, 0}, 8, 24, tall.data());
    auto* text = new SoAnnoText3Property;
    text->renderStyle = SoAnnoText3Property::RASTER;
    auto* contouring = new PoMeshContouring;
    contouring->setIsovaluesList(PbIsovaluesList({0.5f}));
    contouring->annotIsVisible = TRUE;
    contouring->annotFontSize = 5;
    contouring->annotColor = SbColor(0, 1, 0);
    root->insertChild(text, 0);
    root->addChild(contouring);
    ASSERT_TRUE(renderer.renderViewAll(root, SbVec3f(0, 0, -1)));
    ASSERT_EQ(contouring->getLabels().size(), 1u);
    const QImage labelled = renderer.getImage();
    int green = 0;
    for (int y = 0; y < labelled.height(); ++y)
        for (int x = 0; x < labelled.width(); ++x)
            green += qGreen(labelled.pixel(x, y)) > 150 && qRed(labelled.pixel(x, y)) < 100;
    EXPECT_GT(green, 10);
    root->unref();
}
