// The isoline module as scripts drive it: ports, iso values, resolution from the slice, lines on a
// slice of a field whose level sets are circles, the line-set export and the module's commands.
#include "../support/TestFields.h"
#include "PackageSuite.h"

#include <vxiso/VxIsolines.h>

#include <vx/VxLineSet.h>

#include <cmath>
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
    // A ball around (15, 15, 15.5): the value is the distance from it, so every level set cut by the
    // xy slice through z = 16 is a circle of radius sqrt(v^2 - 0.25).
    void ballOnSlice()
    {
        addObject(makeField<float>(31, 31, 32, sphere(15, 15, 15.5, 0)), "ball");
        tcl("create VxOrthoSlice slice; slice data connect ball; slice sliceNumber setValue 16; "
            "create VxIsolines iso; iso data connect ball; iso slice connect slice");
    }
    const VxIsolines& iso() { return *object<VxIsolines>("iso"); }
    std::vector<float> isoValues()
    {
        const KxDArray<float>& v = iso().getIsoValues();
        return std::vector<float>(v.begin(), v.end());
    }
};

TEST_F(Isolines, PortsInOrderWithTheirDefaults)
{
    tcl("create VxIsolines iso");
    const struct
    {
        const char *script, *expected;
    } cases[] = {
        {"iso ports",
         "data slice spacing uniform explicit quality parameters options colormap textAlignment font "
         "textScale textSpacing annotateEvery annotateOnOff"},
        {"iso spacing getValue", "0"},
        {"list [iso uniform getValue 2] [iso uniform getMinValue 2] [iso uniform getMaxValue 2] "
         "[iso uniform getLabel 2]",
         "5 1 200 num"},
        {"list [iso parameters getValue] [iso parameters getMinValue 0] [iso parameters getMaxValue 0] "
         "[iso parameters getMaxValue 1]",
         "{128 2} 16 4096 10"},
        {"list [iso options getNum] [iso options getLabel 0] [iso options getLabel 1]",
         "2 {update min-max} resample"},
        {"list [iso quality getNum] [iso quality getValue] [iso quality getLabel 0] [iso quality getLabel 3]",
         "4 3 low custom"},
        {"iso quality getToolTip",
         "Port to choose a default quality. If you choose low, medium,\nor high, "
         "resolution will be computed automatically.\nIf you choose custom, you can "
         "choose it."},
        {"list [iso textScale getState] [iso {text scale} getIncrement] [iso {text spacing} getState]",
         "{1 500 5} 0.1 {0 500 0}"},
        {"list [iso annotateEvery getValue] [iso annotateEvery getLabel 1] [iso annotateEvery getMaxValue 0]",
         "{3 1} {line, starting with line} 1000"},
        {"list [iso annotateOnOff getValue] [iso annotateOnOff getLabel] [iso textAlignment isVisible]",
         "0 Annotate 0"},
    };
    for (const auto& c : cases) EXPECT_EQ(tcl(c.script), c.expected) << c.script;
    const VxIsolines& m = iso();
    EXPECT_EQ(m.portColormap.getDefaultColor(), SbColor(1, 0, 0));
    EXPECT_FALSE(m.portColormap.isAlphaEnabled());
    EXPECT_EQ(m.portFont.getFontDescription(), "Helvetica");
    EXPECT_EQ(m.portFont.getFontColor().g, 1.f);
}

TEST_F(Isolines, IsoValuesUniformOrAsWritten)
{
    ballOnSlice();
    EXPECT_EQ(tcl("list [iso uniform getValue] [iso explicit getValue]").toStdString(),
              "{0.5 26.27261 5} {6.94315 19.8295}")
        << "a field connected the first time gives its range";
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
        {"explicit setValue {}", {}},
    };
    for (const auto& c : cases) {
        tcl(QString("iso %1").arg(c.ports));
        EXPECT_EQ(isoValues(), c.values) << c.ports;
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
        const int first = line[0], last = line[line.size() - 1];
        for (int k = 0; k < 3; ++k)
            EXPECT_EQ(p[3 * first + k], p[3 * last + k]) << "closed: the last point repeats the first";
        const double radius = std::sqrt(double(value) * value - 0.25);
        for (int i : line) {
            EXPECT_EQ(p[3 * i + 2], 16.f);
            EXPECT_NEAR(std::hypot(p[3 * i] - 15.0, p[3 * i + 1] - 15.0), radius, 0.05) << "value " << value;
            EXPECT_EQ(set.getPointData(0)[i], value);
        }
    }
}

TEST_F(Isolines, QualityGivesTheResolutionFromTheSlicesNodes)
{
    addObject(makeField<float>(255, 100, 20, [](double x, double, double) { return x; }), "f");
    tcl("create VxOrthoSlice slice; slice data connect f; create VxIsolines iso; iso data connect f; "
        "iso slice connect slice");
    const struct
    {
        const char* ports;
        const char* resolution;
        const char* sensitive;
    } cases[] = {
        {"quality setValue 0", "127", "0"}, {"quality setValue 1", "255", "0"},
        {"quality setValue 2", "510", "0"}, {"parameters setValue 0 300; iso quality setValue 3", "300", "1"},
        {"slice disconnect", "300", "1"},
    };
    for (const auto& c : cases) {
        tcl(QString("iso %1").arg(c.ports));
        EXPECT_EQ(tcl("list [iso parameters getValue 0] [iso parameters getSensitivity 0]"),
                  QString("%1 %2").arg(c.resolution, c.sensitive))
            << c.ports;
    }
    EXPECT_EQ(tcl("iso quality isVisible"), "0") << "no slice: the resolution is free";
    tcl("slice sliceOrientation setValue 2; iso slice connect slice");
    tcl("iso quality setValue 2");
    EXPECT_EQ(tcl("iso parameters getValue 0"), "200") << "yz: 2 x max(100, 20)";
}

TEST_F(Isolines, CommandsAndOldScripts)
{
    tcl("create VxIsolines iso; iso text scale setValue 7; iso text spacing setValue 3");
    EXPECT_EQ(tcl("list [iso textScale getValue] [iso textSpacing getValue]"), "7 3");
    EXPECT_EQ(tclError("iso text foo"), "unknow command text foo");
    EXPECT_EQ(tclError("iso text"), "unknow command text");

    tcl("compatibilityVersion 919; iso options setValue 2 1; iso options setValue 1 1");
    EXPECT_EQ(tcl("compatibilityVersion 1000; list [iso annotateOnOff getValue] [iso options getValue 1] "
                  "[iso options getValue 0] [iso textAlignment isVisible]"),
              "1 1 0 1");
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
