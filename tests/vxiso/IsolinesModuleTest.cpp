// The isoline module as scripts drive it: ports and commands, iso values, resolution from the slice,
// lines on a slice of a field whose level sets are circles, and the line-set export.
#include "../support/TestFields.h"
#include "PackageSuite.h"

#include <vxiso/VxAnnotatedIsolines.h>
#include <vxiso/VxIsolines.h>

#include "../support/TestCellGrids.h"
#include <meshkit/PoCartesianGrid2D.h>
#include <meshkit/PoMeshContouring.h>
#include <vx/VxTetraScalarField3.h>

#include <oiv/SoOffscreenEGLRenderer.h>
#include <vx/VxLineSet.h>
#include <vx/VxObliqueSlice.h>

#include <Inventor/SoDB.h>
#include <Inventor/SoInput.h>
#include <Inventor/SoOutput.h>
#include <Inventor/actions/SoSearchAction.h>
#include <Inventor/actions/SoWriteAction.h>
#include <Inventor/nodes/SoFont.h>
#include <Inventor/nodes/SoLightModel.h>
#include <Inventor/nodes/SoSeparator.h>
#include <Inventor/nodes/SoText3.h>

#include <QImage>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <set>
#include <string>
#include <vector>

namespace {

using namespace vxtest;

class Isolines : public PackageSuite
{
protected:
    void SetUp() override
    {
        PackageSuite::SetUp();
        tcl("compatibilityVersion 1000");
    }
    // The distance from (15, 15, 15.5): the xy slice through z = 16 cuts the level set of v in a circle
    // of radius sqrt(v^2 - 0.25).
    void ballOnSlice()
    {
        addObject(makeField<float>(31, 31, 32, sphere(15, 15, 15.5, 0)), "ball");
        tcl("create VxOrthoSlice slice; slice data connect ball; slice sliceNumber setValue 16; "
            "create VxIsolines iso; iso data connect ball; iso slice connect slice");
    }
    const VxIsolines& iso() { return *object<VxIsolines>("iso"); }
};

TEST_F(Isolines, PortsDefaultsAndCommands)
{
    tcl("create VxIsolines iso");
    const struct
    {
        const char *script, *expected;
    } cases[] = {
        {"iso ports", "data slice spacing uniform explicit quality parameters options colormap textAlignment "
                      "font textScale textSpacing annotateEvery annotateOnOff"},
        {"list [iso spacing getValue] [iso uniform getValue 2] [iso uniform getMinValue 2] "
         "[iso uniform getMaxValue 2] [iso uniform getLabel 2]",
         "0 5 1 200 num"},
        {"list [iso parameters getValue] [iso parameters getMinValue 0] [iso parameters getMaxValue 0]",
         "{128 2} 16 4096"},
        {"list [iso options getLabel 0] [iso options getLabel 1] [iso quality getNum] [iso quality getValue]",
         "{update min-max} resample 4 3"},
        {"iso quality getToolTip", "Port to choose a default quality. If you choose low, medium,\nor high, "
                                   "resolution will be computed automatically.\nIf you choose custom, you "
                                   "can choose it."},
        {"list [iso {text scale} getState] [iso {text spacing} getState] [iso annotateEvery getValue]",
         "{1 500 5} {0 500 0} {3 1}"},
        {"list [iso annotateOnOff getLabel] [iso annotateOnOff getValue] [iso font isVisible]",
         "Annotate 0 0"},
        {"iso text scale setValue 7; iso text spacing setValue 3; list [iso textScale getValue] "
         "[iso textSpacing getValue]",
         "7 3"},
        // Old scripts' three toggles: update min-max, resample, annotate.
        {"compatibilityVersion 919; iso options setValue 2 1; iso options setValue 1 1", ""},
        {"compatibilityVersion 1000; list [iso options getValue 0] [iso options getValue 1] "
         "[iso annotateOnOff getValue] [iso font isVisible]",
         "0 1 1 1"},
    };
    for (const auto& c : cases) EXPECT_EQ(tcl(c.script), c.expected) << c.script;
    EXPECT_EQ(tclError("iso text foo"), "unknow command text foo");
    EXPECT_EQ(tclError("iso text"), "unknow command text");
}

TEST_F(Isolines, IsoValuesAndTheirRange)
{
    ballOnSlice();
    addObject(makeField<float>(4, 4, 4, [](double x, double, double) { return 100 + x; }), "ramp");
    const struct
    {
        const char *script, *values;
    } ranges[] = {
        {"", "0.5 26.27261 5"}, // the first field always gives its range
        {"iso data connect ramp", "0.5 26.27261 5"},
        {"iso uniform setValue 0 7; iso options setValue 0 1; iso data connect ball", "0.5 26.27261 5"},
        {"iso options setValue 0 0; iso data disconnect", "0.5 26.27261 5"},
        {"iso data connect ramp", "100 103 5"}, // no field in between
    };
    for (const auto& r : ranges) {
        tcl(r.script);
        EXPECT_EQ(tcl("iso uniform getValue").toStdString(), r.values) << r.script;
    }
    EXPECT_EQ(tcl("list [iso explicit getValue] [iso textScale getState]"),
              "{100.75 102.25} {0.00125 0.02 0.005}");

    const struct
    {
        const char* ports;
        std::vector<float> values;
    } cases[] = {
        {"uniform setValue 0 0; iso uniform setValue 1 10; iso uniform setValue 2 5", {0, 2.5f, 5, 7.5f, 10}},
        {"uniform setValue 0 4; iso uniform setValue 2 1", {4}},
        {"uniform setMinMax 2 -5 200; iso uniform setValue 2 0", {}},
        {"uniform setValue 2 -3", {}},
        {"spacing setValue 1; iso explicit setValue {1.5 2  abc}", {1.5f, 2, 0}},
    };
    for (const auto& c : cases) {
        tcl(QString("iso %1").arg(c.ports));
        EXPECT_EQ(std::vector<float>(iso().getIsoValues().begin(), iso().getIsoValues().end()), c.values)
            << c.ports;
    }
}

TEST_F(Isolines, LinesOnASliceOfABallAreClosedCirclesOfTheirRadius)
{
    ballOnSlice();
    tcl("iso quality setValue 1; iso spacing setValue 1; iso explicit setValue {3 6 9}");
    EXPECT_EQ(tcl("iso parameters getValue 0"), "31") << "medium: one sample a node";
    EXPECT_EQ(tcl("iso exportAsLineSet"), "IsoLines");
    EXPECT_EQ(tcl("iso exportAsLineSet"), "IsoLines2") << "a second export gets a label of its own";
    const VxLineSet& set = *object<VxLineSet>("IsoLines2");
    ASSERT_EQ(set.getNumLines(), 3);
    const float* p = set.getPoints();
    for (int l = 0; l < 3; ++l) {
        const float value = set.getLineData(0)[l];
        EXPECT_EQ(value, 3.f * float(l + 1));
        const KxDArray<int>& line = set.getLine(l);
        ASSERT_GT(line.size(), 8u);
        for (int k = 0; k < 3; ++k)
            EXPECT_EQ(p[3 * line[0] + k], p[3 * line[line.size() - 1] + k]) << "closed: ends where it starts";
        for (int i : line) {
            EXPECT_EQ(p[3 * i + 2], 16.f);
            EXPECT_NEAR(std::hypot(p[3 * i] - 15.0, p[3 * i + 1] - 15.0), std::sqrt(value * value - 0.25),
                        0.05);
            EXPECT_EQ(set.getPointData(0)[i], value);
        }
    }
    // Drawn over the slice in the colour map's default red, one colour a line: neither hidden behind
    // the plane nor coloured from past the end of the colours.
    const QString png = QString::fromStdString(::testing::TempDir() + "isolines-ball.png");
    tcl("snapshot " + png + " -size 120 120");
    const QImage image(png);
    int red = 0, otherHue = 0;
    for (int y = 0; y < image.height(); ++y)
        for (int x = 0; x < image.width(); ++x) {
            const QRgb c = image.pixel(x, y);
            red += qRed(c) > 200 && qGreen(c) < 60 && qBlue(c) < 60;
            otherHue += qGreen(c) > qRed(c) + 40 || qBlue(c) > qRed(c) + 40;
        }
    EXPECT_GT(red, 100);
    EXPECT_EQ(otherHue, 0);
}

TEST_F(Isolines, QualityGivesTheResolutionFromTheSlice)
{
    addObject(makeField<float>(255, 100, 20, [](double x, double, double) { return x; }), "f");
    tcl("create VxOrthoSlice slice; slice data connect f; create VxArbitraryCut cut; cut data connect f; "
        "create VxObliqueSlice ob; ob data connect f; ob sampling setValue 0 2; create VxIsolines iso; "
        "iso data connect f; iso slice connect slice");
    const struct
    {
        const char *script, *expected; // resolution, its sensitivity, quality shown
    } cases[] = {
        {"iso quality setValue 0", "127 0 1"},
        {"iso quality setValue 2", "510 0 1"},
        {"iso parameters setValue 0 300; iso quality setValue 3", "300 1 1"},
        {"slice sliceOrientation setValue 2; iso quality setValue 2", "200 0 1"},
        {"iso slice connect cut; cut normal setState 0 1 0", "200 1 1"},
        {"iso quality setValue 0", "127 0 1"},
        {"cut normal setState 1 1 0", "127 1 0"},
        {"iso slice disconnect", "127 1 0"},
        // A quality chosen with the connection (as a saved network does) outlives the new slice's reset.
        {"iso slice connect slice; iso quality setValue 1", "100 0 1"},
    };
    for (const auto& c : cases) {
        tcl(c.script);
        EXPECT_EQ(
            tcl("list [iso parameters getValue 0] [iso parameters getSensitivity 0] [iso quality isVisible]")
                .toStdString(),
            c.expected)
            << c.script;
    }
    tcl("iso slice connect ob");
    EXPECT_EQ(tcl("list [iso quality getNum] [iso quality getLabel 0] [iso quality getValue]"), "4 coarse 2");
    const SbVec2s fine = object<VxObliqueSlice>("ob")->getResolution(2);
    EXPECT_EQ(tcl("iso parameters getValue 0").toInt(), std::max(fine[0], fine[1]));
}

TEST_F(Isolines, NoFieldOrNoSliceComputesNothing)
{
    for (const char* connect :
         {"iso data connect f", "create VxOrthoSlice s; s data connect f; iso slice connect s"}) {
        tcl("remove -all");
        addObject(makeField<float>(8, 8, 8, sphere(4, 4, 4, 0)), "f");
        tcl(QString("create VxIsolines iso; %1; iso fire").arg(connect));
        EXPECT_TRUE(iso().getIsoValues().empty()) << connect;
        const QString exported = tcl("iso exportAsLineSet");
        EXPECT_EQ(object<VxLineSet>(exported.toUtf8().constData())->getNumLines(), 0) << connect;
        EXPECT_TRUE(messages()->lines().isEmpty() && messages()->errors().isEmpty()) << connect;
    }
}

} // namespace

// Contour lines of a field on a slice through another field that lies elsewhere in space: the
// samples are taken where the slice is, in the contoured field's own frame, and the lines drawn in
// the slice's frame. The same ball moved by (4, -2, 0) gives the circles moved by as much.
TEST_F(Isolines, AFieldInAnotherFrameIsSampledWhereTheSliceIs)
{
    ballOnSlice();
    VxUniformScalarField3* moved = makeField<float>(31, 31, 32, sphere(15, 15, 15.5, 0));
    SbMatrix shift;
    shift.setTranslate(SbVec3f(4, -2, 0));
    moved->setTransform(shift);
    addObject(moved, "moved");
    tcl("iso quality setValue 1; iso spacing setValue 1; iso explicit setValue 5; iso fire");
    const std::string home = tcl("iso exportAsLineSet").toStdString();
    tcl("iso data connect moved; iso quality setValue 1; iso fire");
    const VxLineSet& a = *object<VxLineSet>(home.c_str());
    const VxLineSet& b = *object<VxLineSet>(tcl("iso exportAsLineSet").toUtf8().constData());
    ASSERT_EQ(b.getNumLines(), 1);
    ASSERT_GT(b.getNumPoints(), 20);
    for (int i = 0; i < b.getNumPoints(); ++i) {
        const float* p = b.getPoints() + 3 * i;
        EXPECT_NEAR(std::hypot(p[0] - 19.0, p[1] - 13.0), std::sqrt(25 - 0.25), 0.05) << i;
        EXPECT_EQ(p[2], 16.f);
    }
    EXPECT_EQ(a.getNumPoints(), b.getNumPoints()) << "samples on nodes of both fields: the same cuts";
}

namespace {

std::vector<std::string> labelTexts(SoNode* root, SoType type = SoText3::getClassTypeId())
{
    std::vector<std::string> texts;
    SoSearchAction search;
    search.setType(type);
    search.setInterest(SoSearchAction::ALL);
    search.apply(root);
    for (int i = 0; i < search.getPaths().getLength(); ++i)
        texts.push_back(static_cast<SoText3*>(search.getPaths()[i]->getTail())->string[0].getString());
    return texts;
}

} // namespace

// "Annotate Every 2, starting with 2" labels the 2nd and 4th of the sorted values, each label its
// value with no decimals; 2.4 and 2.6 read 2 and 3 but clip as 2 and 2, so either's labels open both
// lines. A font that is not installed is replaced, with one warning however often it is drawn.
TEST_F(Isolines, LabelsShowTheChosenValuesAndOpenTheLinesOfTheirInteger)
{
    ballOnSlice();
    tcl("iso quality setValue 1; iso spacing setValue 1; iso explicit setValue {7 3 5 4 6}; "
        "iso annotateOnOff setValue 1; iso annotateEvery setValue 0 2; iso annotateEvery setValue 1 2; "
        "iso textScale setValue 0.05; iso textSpacing setValue 1; iso fire");
    std::vector<std::string> texts = labelTexts(iso().getTextSeparator());
    ASSERT_FALSE(texts.empty());
    for (const std::string& t : texts) EXPECT_TRUE(t == "4" || t == "6") << t;
    EXPECT_NE(std::find(texts.begin(), texts.end(), "4"), texts.end());

    tcl("iso explicit setValue {2.4 2.6}; iso annotateEvery setValue 0 1; iso annotateEvery setValue 1 1; "
        "iso textAlignment setValue 1 1; iso font setFont NoSuchFamilyAnywhere 12; iso fire; iso fire");
    texts = labelTexts(iso().getTextSeparator());
    ASSERT_GE(texts.size(), 2u);
    EXPECT_NE(std::find(texts.begin(), texts.end(), "2"), texts.end());
    EXPECT_NE(std::find(texts.begin(), texts.end(), "3"), texts.end());
    int pieces[2] = {0, 0};
    for (float v : iso().getLineValues()) ++pieces[v > 2.5f];
    EXPECT_GT(pieces[0], 1) << "the closed circle of 2.4 is opened";
    EXPECT_GT(pieces[1], 1);
    EXPECT_EQ(messages()->lines().filter("NoSuchFamilyAnywhere\" is not installed").size(), 1);
}

// The camera-facing node is the package's, reads back from a file as itself, and covers pixels
// from any side, while plain text seen edge-on covers none.
TEST_F(Isolines, FacingLabelsFaceEveryViewAndReadBackFromFiles)
{
    const SoType facing = SoType::fromName("Text3FacingCamera");
    ASSERT_FALSE(facing.isBad());
    EXPECT_EQ(facing.getParent(), SoText3::getClassTypeId());

    ballOnSlice();
    tcl("iso quality setValue 1; iso spacing setValue 1; iso explicit setValue 5; iso annotateOnOff setValue "
        "1; "
        "iso textAlignment setValue 0 1; iso textScale setValue 0.05; iso fire");
    const std::size_t labels = labelTexts(iso().getTextSeparator(), facing).size();
    ASSERT_GT(labels, 1u);
    SoOutput out;
    out.setBuffer(malloc(1024), 1024, realloc);
    SoWriteAction write(&out);
    write.apply(iso().getRoot());
    void* buffer = nullptr;
    size_t size = 0;
    out.getBuffer(buffer, size);
    SoInput in;
    in.setBuffer(buffer, size);
    SoSeparator* read = SoDB::readAll(&in);
    ASSERT_TRUE(read);
    read->ref();
    EXPECT_EQ(labelTexts(read, facing).size(), labels);
    read->unref();
    free(buffer);

    QString why;
    if (!SoOffscreenEGLRenderer::isAvailable(&why)) GTEST_SKIP() << why.toStdString();
    auto covered = [](SoNode* text, const SbVec3f& view) {
        auto* root = new SoSeparator;
        root->ref();
        auto* light = new SoLightModel;
        light->model = SoLightModel::BASE_COLOR;
        auto* font = new SoFont;
        font->size = 10;
        root->addChild(light);
        root->addChild(font);
        root->addChild(text);
        SoOffscreenEGLRenderer renderer(96, 64);
        renderer.setBackgroundColor(SbColor(0, 0, 0));
        EXPECT_TRUE(renderer.renderViewAll(root, view));
        const QImage picture = renderer.getImage();
        int lit = 0;
        for (int y = 0; y < picture.height(); ++y)
            for (int x = 0; x < picture.width(); ++x) lit += qGray(picture.pixel(x, y)) > 100;
        root->unref();
        return lit;
    };
    for (const bool faces : {true, false}) {
        auto* text = static_cast<SoText3*>(faces ? facing.createInstance() : new SoText3);
        text->ref();
        text->string = "88";
        EXPECT_GT(covered(text, SbVec3f(0, 0, -1)), 20) << faces;
        const int sideways = covered(text, SbVec3f(1, 0, 0));
        EXPECT_TRUE(faces ? sideways > 20 : sideways == 0) << faces << ": " << sideways << " pixels edge-on";
        text->unref();
    }
}

// The annotated contoured slice: its ports after the cut's own, its scene in order, the iso values
// handed to the contouring, a sampled grid with "no value" outside the field, and a quadrangle mesh
// of only the cells inside a tetrahedral field.
// Work stopped from outside (the viewer's Stop button): both modules keep the last run's lines and
// say so.
TEST_F(Isolines, AnInterruptedRunKeepsTheLastLines)
{
    Stoppable* progress = installStoppable();
    ballOnSlice();
    tcl("iso spacing setValue 1; iso explicit setValue {3 6 9}; create VxAnnotatedIsolines a; a data connect "
        "ball; "
        "a origin setValue 2 10; a explicit setValue {3 6}; a fire");
    const std::vector<float> values(iso().getLineValues().begin(), iso().getLineValues().end());
    const SoNode* mesh = object<VxAnnotatedIsolines>("a")->getMesh();
    ASSERT_EQ(std::set<float>(values.begin(), values.end()), (std::set<float>{3, 6, 9}));
    progress->stop = true;
    messages()->clearRecords();
    tcl("iso explicit setValue {4}; a origin setValue 2 12; a fire");
    EXPECT_EQ(std::vector<float>(iso().getLineValues().begin(), iso().getLineValues().end()), values);
    EXPECT_EQ(object<VxAnnotatedIsolines>("a")->getMesh(), mesh);
    QStringList said = messages()->lines();
    said.sort();
    EXPECT_EQ(said,
              QStringList({"Warning: Contoured slice interrupted; it shows the last run.",
                           "Warning: Isoline extraction interrupted; the lines are those of the last run."}));
    progress->stop = false;
    tcl("iso fire");
    ASSERT_GT(iso().getLineValues().size(), 0);
    EXPECT_EQ(iso().getLineValues()[0], 4.f);
}

TEST_F(Isolines, AnnotatedSliceSamplesTheFieldIntoTheKit)
{
    EXPECT_NE(KxTypeInfo::fromName("VxAnnotatedIsolines"), nullptr);
    EXPECT_EQ(KxTypeInfo::fromName("VxAnnotatedIsolines")->getParent(), VxArbitraryCut::getClassTypeId());
    addObject(makeField<float>(21, 21, 21, sphere(10, 10, 10, 0)), "ball");
    tcl("create VxAnnotatedIsolines a; a data connect ball; a origin setValue 2 10; "
        "a parameters setValue 0 41; a spacing setValue 1; a explicit setValue {3 6}; a fire");
    EXPECT_EQ(tcl("a ports"),
              "data colormap origin normal spacing uniform explicit parameters options2 annotations "
              "annotationsPath annotationsFontSize annotationsFontFactor annotationsGap "
              "annotationsPeriod annotationsContourClip format annotationsColors");
    EXPECT_EQ(tcl("list [a annotations getValue 0] [a annotationsPeriod getValue] [a format getValue 0] "
                  "[a annotationsFontSize getState]"),
              "1 {3 1} 0 {0.04 10 5}");
    auto* module = object<VxAnnotatedIsolines>("a");
    const char* types[] = {"Callback",      "MatrixTransform",   "SoAnnoText3Property",
                           "DrawStyle",     "PoCartesianGrid2D", "PoNonLinearDataMapping",
                           "PolygonOffset", "TransparencyType",  "PoMeshContouring",
                           "Callback"};
    ASSERT_EQ(module->getRoot()->getNumChildren(), 10);
    for (int i = 0; i < 10; ++i)
        EXPECT_STREQ(module->getRoot()->getChild(i)->getTypeId().getName().getString(), types[i]) << i;
    const meshkit::PoMeshContouring& c = *module->getContouring();
    EXPECT_EQ(c.isoValues.getNum(), 2);
    EXPECT_EQ(c.isoValues[1], 6.f);
    EXPECT_EQ(c.coloring.getValue(), int(meshkit::PoMeshContouring::CONTRAST));

    // The cut through z = 10 spans the box: 41 x 41 samples half a voxel apart, all in the field;
    // a cut across a corner of the box meets it in a triangle, the rest of its rectangle has no values.
    const auto* grid = static_cast<meshkit::PoCartesianGrid2D*>(module->getMesh());
    ASSERT_EQ(grid->getNumNodes(), 41 * 41);
    EXPECT_NEAR(grid->getValue(20 * 41 + 20), 0, 1e-5);
    tcl("a normal setState 1 1 1; a origin setState 15 15 15; a fire");
    const auto* tilted = module->getMesh();
    int none = 0;
    for (int i = 0; i < tilted->getNumNodes(); ++i) none += !meshkit::PoMesh::hasValue(tilted->getValue(i));
    EXPECT_GT(none, tilted->getNumNodes() / 4);
    EXPECT_LT(none, tilted->getNumNodes());

    KxHandle<VxTetraGrid> cube(kuhnGrid(4, true));
    std::vector<float> xyz(cube->getNodes(), cube->getNodes() + 3 * cube->getNumNodes()), values;
    for (int32_t n = 0; n < cube->getNumNodes(); ++n) values.push_back(cube->getNode(n).x);
    std::vector<int32_t> cells;
    for (int32_t t = 0; t < cube->getNumTetras(); ++t)
        cells.insert(cells.end(), cube->getTetra(t).nodes, cube->getTetra(t).nodes + 4);
    addObject(new VxTetraScalarField3(new VxTetraGrid(xyz, cells), values), "tets");
    tcl("a data connect tets; a normal setState 1 1 1; a origin setState 2 2 2; a fire");
    auto* quads = dynamic_cast<meshkit::PoQuadrangleMesh*>(module->getMesh());
    ASSERT_TRUE(quads);
    ASSERT_GT(quads->getNumCells(), 10);
    for (int i = 0; i < quads->getNumNodes(); ++i) EXPECT_TRUE(meshkit::PoMesh::hasValue(quads->getValue(i)));
}
