#include "PortScript.h"

#include <vx/VxApplication.h>
#include <vx/VxColormap.h>
#include <vx/VxObjectPool.h>
#include <vx/VxPort3DPointList.h>
#include <vx/VxPortButtonList.h>
#include <vx/VxPortColorList.h>
#include <vx/VxPortColormap.h>
#include <vx/VxPortDoIt.h>
#include <vx/VxPortDrawStyle.h>
#include <vx/VxPortFloatSlider.h>
#include <vx/VxPortFloatTextN.h>
#include <vx/VxPortFontSelection.h>
#include <vx/VxPortGeneric.h>
#include <vx/VxPortIntSlider.h>
#include <vx/VxPortIntTextN.h>
#include <vx/VxPortMultiMenu.h>
#include <vx/VxPortOnOff.h>
#include <vx/VxPortRadioBox.h>
#include <vx/VxPortRangeTplSlider.h>
#include <vx/VxPortText.h>
#include <vx/VxPortToggleList.h>
#include <vx/VxRangeProviderSpatialData.h>
#include <vx/VxRegScalarField3.h>

#include <QFont>

#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <memory>

using vxtest::PortOwner;

namespace {

class PortsTest : public ::testing::Test
{
protected:
    void SetUp() override { m_interp = Tcl_CreateInterp(); }
    void TearDown() override { Tcl_DeleteInterp(m_interp); }

    int run(VxObject& o, const std::string& line) { return script().run(o, line); }
    std::string get(VxObject& o, const std::string& line) { return script().get(o, line); }
    std::string result() const { return m_script ? m_script->result() : std::string(); }
    vxtest::PortScript& script()
    {
        if (!m_script) m_script = std::make_unique<vxtest::PortScript>(m_interp);
        return *m_script;
    }
    // The error text of a line that must fail.
    std::string fails(VxObject& o, const std::string& line)
    {
        int code = run(o, line);
        return code == TCL_ERROR ? result() : "<no error: " + result() + ">";
    }
    // The line fails with the text, led by the names of the owner and of the line's port.
    void expectError(VxObject& o, const std::string& line, const std::string& text)
    {
        const std::string port = line.substr(0, line.find(' '));
        EXPECT_EQ(fails(o, line), "\"" + o.getName().toStdString() + "\" port \"" + port + "\": " + text);
    }

    Tcl_Interp* m_interp = nullptr;
    std::unique_ptr<vxtest::PortScript> m_script;
    PortOwner owner{"obj"};
};

TEST_F(PortsTest, FloatSliderClampsAndSetsChangeFlags)
{
    VxPortFloatSlider s(&owner, "Threshold", "threshold");
    s.setMinMax(0.f, 255.f);
    EXPECT_TRUE(s.isNew(VxPort::NEW_RANGE));
    s.untouch();
    s.setValue(300.f);
    EXPECT_EQ(s.getValue(), 255.f);
    EXPECT_TRUE(s.isNew(VxPort::NEW_VALUE));
    EXPECT_FALSE(s.isNew(VxPort::NEW_RANGE));
    s.untouch();
    EXPECT_FALSE(s.isNew());

    // The same value again is no change; NaN is refused.
    s.setValue(255.f);
    s.setValue(NAN);
    EXPECT_FALSE(s.isNew());
    EXPECT_EQ(s.getValue(), 255.f);

    // A narrower range pulls the value in and says so.
    s.setMinMax(0.f, 100.f);
    EXPECT_EQ(s.getValue(), 100.f);
    EXPECT_TRUE(s.isNew(VxPort::NEW_RANGE));
    EXPECT_TRUE(s.isNew(VxPort::NEW_VALUE));
    s.untouch();
    s.setMinMax(0.f, 100.f);
    EXPECT_FALSE(s.isNew());

    s.setMinMax(50.f, 10.f);
    EXPECT_EQ(s.getMinValue(), 10.f);
    EXPECT_EQ(s.getMaxValue(), 50.f);
    EXPECT_EQ(s.getValue(), 50.f);
}

TEST_F(PortsTest, FloatSliderVerbsAndTheirErrors)
{
    VxPortFloatSlider s(&owner, "Threshold", "threshold");
    s.setAliasName("level");
    ASSERT_EQ(run(owner, "threshold setMinMax -10 255"), TCL_OK);
    ASSERT_EQ(run(owner, "level setValue 80.5"), TCL_OK);
    EXPECT_EQ(get(owner, "threshold getValue"), "80.5");
    EXPECT_EQ(get(owner, "threshold getMinValue"), "-10");
    EXPECT_EQ(get(owner, "threshold getMaxValue"), "255");
    EXPECT_EQ(get(owner, "threshold getState"), "-10 255 80.5");
    ASSERT_EQ(run(owner, "threshold setValue 1e9"), TCL_OK);
    EXPECT_EQ(get(owner, "threshold getValue"), "255");

    expectError(owner, "threshold setValue", "usage: threshold setValue VALUE");
    expectError(owner, "threshold setValue 1 2", "usage: threshold setValue VALUE");
    expectError(owner, "threshold setValue abc", "\"abc\" is not a number");
    expectError(owner, "threshold setValue nan", "\"nan\" is not a number (NaN)");
    expectError(owner, "threshold setMinMax 5 1", "the minimum 5 is greater than the maximum 1");
    expectError(owner, "threshold setMinMax 5", "usage: threshold setMinMax MIN MAX");
    expectError(owner, "threshold setState 1 2", "usage: threshold setState MIN MAX VALUE");
    expectError(owner, "threshold setIncrement -1", "the increment -1 is negative or infinite");
    expectError(owner, "threshold getValue 3", "usage: threshold getValue");
    std::string unknown = fails(owner, "threshold frobnicate");
    EXPECT_EQ(unknown.rfind("\"obj\" port \"threshold\": unknown verb \"frobnicate\"; verbs: setValue, ", 0),
              0u)
        << unknown;
    EXPECT_EQ(get(owner, "threshold getValue"), "255") << "failed commands change nothing";

    // Formats go to printf: only a single floating-point conversion is taken.
    expectError(owner, "threshold setFormat %d",
                "\"%d\" is not a format for one floating-point number, such as \"%g\" or \"%.2f\"");
    EXPECT_NE(run(owner, "threshold setFormat {%g %s}"), TCL_OK);
    EXPECT_NE(run(owner, "threshold setFormat {%f %f}"), TCL_OK);
    EXPECT_NE(run(owner, "threshold setFormat %.2"), TCL_OK);
    ASSERT_EQ(run(owner, "threshold setFormat {%.2f %%}"), TCL_OK);
    EXPECT_EQ(s.formatValue(0.5f).toStdString(), "0.50 %");
}

TEST_F(PortsTest, FloatSliderDragSimulation)
{
    VxPortFloatSlider s(&owner, "Threshold", "threshold");
    s.setMinMax(0.f, 100.f);

    // Tracking with interactive reports: each move sets the value, release asks for one more run.
    s.setInteractiveTracking(true, true);
    s.untouch();
    ASSERT_EQ(run(owner, "threshold drag 10"), TCL_OK);
    EXPECT_TRUE(s.isInteractive());
    EXPECT_EQ(get(owner, "threshold isInteractive"), "1");
    EXPECT_EQ(s.getValue(), 10.f);
    EXPECT_TRUE(s.isNew(VxPort::NEW_VALUE));
    s.untouch();
    ASSERT_EQ(run(owner, "threshold release"), TCL_OK);
    EXPECT_FALSE(s.isInteractive());
    EXPECT_TRUE(s.isNew(VxPort::NEW_VALUE));
    EXPECT_EQ(s.getValue(), 10.f);

    // Without tracking the value arrives on release only, and no drag is reported.
    s.setInteractiveTracking(false, false);
    s.untouch();
    ASSERT_EQ(run(owner, "threshold drag 150"), TCL_OK);
    EXPECT_FALSE(s.isInteractive());
    EXPECT_EQ(s.getValue(), 10.f);
    EXPECT_FALSE(s.isNew());
    ASSERT_EQ(run(owner, "threshold release"), TCL_OK);
    EXPECT_EQ(s.getValue(), 100.f);
    EXPECT_TRUE(s.isNew(VxPort::NEW_VALUE));
    expectError(owner, "threshold drag nan", "\"nan\" is not a number (NaN)");
}

TEST_F(PortsTest, IntSliderClampsAndRejectsFractions)
{
    VxPortIntSlider s(&owner, "Number Of Cores", "numberOfCores");
    s.setMinMax(1, 8);
    s.setValue(8);
    s.untouch();
    s.setMinMax(1, 4);
    EXPECT_EQ(s.getValue(), 4);
    EXPECT_TRUE(s.isNew(VxPort::NEW_VALUE));
    EXPECT_TRUE(s.isNew(VxPort::NEW_RANGE));
    ASSERT_EQ(run(owner, "numberOfCores setValue -3"), TCL_OK);
    EXPECT_EQ(get(owner, "numberOfCores getState"), "1 4 1");
    expectError(owner, "numberOfCores setValue 2.5", "\"2.5\" is not an integer");
    expectError(owner, "numberOfCores setMinMax 4 2", "the minimum 4 is greater than the maximum 2");
}

TEST_F(PortsTest, ToggleListKeepsPerItemFlags)
{
    VxPortToggleList t(&owner, "Options", "options", 2);
    t.setLabel(0, "compactify");
    t.setValue(0, true);
    t.untouch();
    EXPECT_FALSE(t.isItemNew(0));

    ASSERT_EQ(run(owner, "options setValue 1 1"), TCL_OK);
    EXPECT_TRUE(t.isItemNew(1));
    EXPECT_FALSE(t.isItemNew(0));
    EXPECT_EQ(get(owner, "options isItemNew 1"), "1");
    t.untouch();
    EXPECT_FALSE(t.isItemNew(1));
    EXPECT_FALSE(t.isNew());

    // Unchanged values are no news; a single value addresses the first toggle.
    ASSERT_EQ(run(owner, "options setValue 1 on"), TCL_OK);
    EXPECT_FALSE(t.isNew());
    ASSERT_EQ(run(owner, "options setValue 0"), TCL_OK);
    EXPECT_TRUE(t.isItemNew(0));
    EXPECT_EQ(get(owner, "options getState"), "0 1");
    EXPECT_EQ(get(owner, "options getLabel 0"), "compactify");
    EXPECT_EQ(get(owner, "options getLabel"), "Options");

    expectError(owner, "options setValue 2 1", "index 2 is out of range 0..1");
    expectError(owner, "options setValue -1 1", "index -1 is out of range 0..1");
    expectError(owner, "options setValue 0 maybe", "\"maybe\" is not a boolean");
    expectError(owner, "options setValue", "usage: options setValue [INDEX] ON");
    expectError(owner, "options setState 1", "setState needs 2 values, one per toggle, not 1");

    t.setSensitivity(1, false);
    EXPECT_EQ(get(owner, "options getSensitivity 1"), "0");
    t.setNum(3);
    EXPECT_EQ(t.getNum(), 3);
    EXPECT_FALSE(t.getValue(2));
    EXPECT_FALSE(t.getValue(7));
    t.setNum(0);
    expectError(owner, "options getValue", "index 0 is out of range (the port has no items)");

    VxPortOnOff onOff(&owner, "Down Sample", "downSampleOnOff");
    onOff.setValue(true);
    ASSERT_EQ(run(owner, "downSampleOnOff setValue 0"), TCL_OK);
    EXPECT_FALSE(onOff.getValue());
}

TEST_F(PortsTest, RadioBoxSelectsWithinItsButtons)
{
    VxPortRadioBox r(&owner, "Spacing", "spacing", 2);
    r.setLabel(0, "uniform");
    r.setLabel(1, "explicit");
    r.untouch();
    ASSERT_EQ(run(owner, "spacing setIndex 1"), TCL_OK);
    EXPECT_EQ(r.getValue(), 1);
    EXPECT_TRUE(r.isNew(VxPort::NEW_VALUE));
    EXPECT_EQ(get(owner, "spacing getLabel 1"), "explicit");
    expectError(owner, "spacing setValue 2", "index 2 is out of range 0..1");
    r.setValue(5);
    EXPECT_EQ(r.getIndex(), 1);

    r.setNum(4);
    r.setIndex(3);
    r.untouch();
    r.setNum(2);
    EXPECT_EQ(r.getIndex(), 1);
    EXPECT_TRUE(r.isNew(VxPort::NEW_VALUE));
    EXPECT_TRUE(r.isNew(VxPort::NEW_ITEMS));
}

TEST_F(PortsTest, ButtonsStayHitUntilRunOrWhileSnapped)
{
    VxPortDoIt doIt(&owner, "Action", "doIt");
    doIt.setLabel(0, "Apply");
    VxPortButtonList buffer(&owner, "Buffer", "buffer", 4);
    doIt.untouch();
    EXPECT_EQ(doIt.getValue(), -1);

    ASSERT_EQ(run(owner, "doIt hit"), TCL_OK);
    EXPECT_TRUE(doIt.wasHit(0));
    EXPECT_EQ(doIt.getValue(), 0);
    doIt.untouch();
    EXPECT_FALSE(doIt.wasHit(0));

    // Pressing again is always news, even when the button is still down.
    const int touches = owner.touches;
    doIt.hit();
    doIt.hit();
    EXPECT_EQ(owner.touches, touches + 2);
    doIt.untouch();

    ASSERT_EQ(run(owner, "buffer snap 2 1"), TCL_OK);
    for (int run = 0; run < 3; ++run) {
        EXPECT_TRUE(buffer.wasHit(2));
        EXPECT_FALSE(buffer.wasHit(1));
        buffer.untouch();
    }
    EXPECT_EQ(get(owner, "buffer isSnapped 2"), "1");
    ASSERT_EQ(run(owner, "buffer snap 2 0"), TCL_OK);
    EXPECT_FALSE(buffer.wasHit(2));
    ASSERT_EQ(run(owner, "buffer hit 3"), TCL_OK);
    EXPECT_EQ(get(owner, "buffer wasHit 3"), "1");

    expectError(owner, "buffer hit 4", "index 4 is out of range 0..3");
    expectError(owner, "buffer snap 1", "usage: buffer snap INDEX ON");
    expectError(owner, "doIt hit x", "\"x\" is not an integer");
    EXPECT_TRUE(doIt.saveState().isEmpty());
    EXPECT_TRUE(buffer.saveState().isEmpty());
}

TEST_F(PortsTest, TextFieldsClampPerField)
{
    VxPortFloatTextN values(&owner, "Values", "uniform", 3);
    values.setLabel(2, "num");
    values.setMinMax(2, 1.f, 200.f);
    EXPECT_EQ(values.getValue(2), 1.f) << "the value moves into a new range";
    values.setValue(2, 5.f);
    values.untouch();
    values.setValue(2, 500.f);
    EXPECT_EQ(values.getValue(2), 200.f);
    values.setValue(0, -1e30f);
    EXPECT_EQ(values.getValue(0), -1e30f) << "fields without a range take any number";
    values.setValue(1, NAN);
    EXPECT_EQ(values.getValue(1), 0.f);

    ASSERT_EQ(run(owner, "uniform setValue 1 2.5"), TCL_OK);
    EXPECT_EQ(get(owner, "uniform getValue"), "-1e+30 2.5 200");
    EXPECT_EQ(get(owner, "uniform getValue 2"), "200");
    EXPECT_EQ(get(owner, "uniform getMaxValue 2"), "200");
    EXPECT_EQ(get(owner, "uniform getLabel 2"), "num");
    expectError(owner, "uniform setValue 3 1", "index 3 is out of range 0..2");
    expectError(owner, "uniform setValue 1 inf5", "\"inf5\" is not a number");
    expectError(owner, "uniform setValue 2", "usage: uniform setValue INDEX VALUE");
    expectError(owner, "uniform setMinMax 0 9 1", "the minimum 9 is greater than the maximum 1");

    VxPortIntTextN average(&owner, "Average", "resolution", 3);
    average.setMinMax(1, 64);
    ASSERT_EQ(run(owner, "resolution setState {0 2 100}"), TCL_OK);
    EXPECT_EQ(get(owner, "resolution getState"), "1 2 64");
    ASSERT_EQ(run(owner, "resolution setSensitivity 1 0"), TCL_OK);
    EXPECT_EQ(average.getSensitivity(1), VxPortIntTextN::NO_SENSITIVITY);
    expectError(owner, "resolution setValue 0 1.5", "\"1.5\" is not an integer");
    expectError(owner, "resolution setState 1 2", "setState needs 3 values, one per field, not 2");
    EXPECT_EQ(get(owner, "resolution getState"), "1 2 64") << "a bad state changes nothing";
}

TEST_F(PortsTest, MultiMenuSelectsExistingItems)
{
    VxPortMultiMenu m(&owner, "Annotations Path", "annotationsPath", 2);
    m.setItems(0, {"tangential path", "horizontal path", "vertical path"});
    EXPECT_EQ(m.getValue(0), 0);
    EXPECT_EQ(m.getValue(1), -1);
    m.untouch();
    ASSERT_EQ(run(owner, "annotationsPath setValue 2"), TCL_OK);
    EXPECT_EQ(m.getValue(0), 2);
    EXPECT_TRUE(m.isNew(VxPort::NEW_VALUE));
    expectError(owner, "annotationsPath setValue 3", "index 3 is out of range 0..2");
    expectError(owner, "annotationsPath setValue 1 0", "index 0 is out of range (the port has no items)");
    EXPECT_EQ(get(owner, "annotationsPath getItems 0"),
              "{tangential path} {horizontal path} {vertical path}");

    m.setItems(0, {"a", "b"});
    EXPECT_EQ(m.getValue(0), 0) << "a selection that is gone falls back to the first item";
}

TEST_F(PortsTest, ColormapPortUsesDefaultsUntilConnected)
{
    VxPortColormap port(&owner, "Colormap", "colormap");
    port.setDefaultColor(SbColor(1.f, 0.8f, 0.4f));
    port.setDefaultAlpha(0.5f);
    EXPECT_EQ(port.getColormap(), nullptr);
    EXPECT_EQ(port.getColor(123.f), SbColor(1.f, 0.8f, 0.4f));
    EXPECT_EQ(port.getPackedColor(0.f), 0xffcc6680u);
    port.enableAlpha(false);
    EXPECT_EQ(port.getAlpha(0.f), 1.f);
    EXPECT_EQ(port.getPackedColor(0.f), 0xffcc66ffu);
    port.enableAlpha(true);

    ASSERT_EQ(run(owner, "colormap setDefaultColor 2 -1 0.5"), TCL_OK);
    EXPECT_EQ(get(owner, "colormap getDefaultColor"), "1 0 0.5") << "components are clamped";
    expectError(owner, "colormap setDefaultColor 1 0", "usage: colormap setDefaultColor R G B");
    expectError(owner, "colormap setDefaultAlpha NaN", "\"NaN\" is not a number (NaN)");

    VxObjectPool* pool = VxApplication::instance()->objectPool();
    auto* map = new VxColormap;
    map->setLabel("ramp");
    ASSERT_TRUE(pool->addObject(map, false));
    map->setRange(100.f, 200.f);
    map->setSamples({{0.f, 0.f, 0.f, 0.f}, {1.f, 0.5f, 0.f, 1.f}});

    port.untouch();
    ASSERT_EQ(run(owner, "colormap connect ramp"), TCL_OK);
    EXPECT_EQ(port.getColormap(), map);
    EXPECT_TRUE(port.isNew(VxPort::NEW_SOURCE));
    EXPECT_EQ(port.getColor(150.f), SbColor(0.5f, 0.25f, 0.f));
    EXPECT_EQ(port.getAlpha(150.f), 0.5f);
    EXPECT_EQ(port.getColor(-1e9f), SbColor(0.f, 0.f, 0.f)) << "values below the range take the first colour";
    EXPECT_EQ(port.getPackedColor(1e9f), 0xff8000ffu);
    EXPECT_EQ(get(owner, "colormap getColor 175"), "0.75 0.375 0");

    // A change of the map reaches its readers.
    port.untouch();
    map->setRange(0.f, 1.f);
    EXPECT_TRUE(port.isNew(VxPort::NEW_DATA));

    auto* notAMap = new PortOwner("notAMap");
    ASSERT_TRUE(pool->addObject(notAMap, false));
    expectError(owner, "colormap connect nothing", "cannot connect: there is no object \"nothing\"");
    std::string wrongType = fails(owner, "colormap connect notAMap");
    EXPECT_NE(wrongType.find("is not accepted here; accepted: VxColormap"), std::string::npos) << wrongType;
    EXPECT_EQ(port.getColormap(), map);
    pool->removeAll();
    EXPECT_EQ(port.getColormap(), nullptr);
}

TEST_F(PortsTest, ColormapInterpolatesItsSamples)
{
    VxColormap map;
    EXPECT_EQ(map.getRGBA(0.5f).r, 0.5f) << "a new map is a grey ramp over [0, 1]";
    map.setSamples({{1.f, 0.f, 0.f, 1.f}, {0.f, 1.f, 0.f, 1.f}, {0.f, 0.f, 2.f, -1.f}});
    map.setRange(10.f, -10.f);
    EXPECT_EQ(map.getMinValue(), -10.f);
    VxColormap::RGBA mid = map.getRGBA(0.f), upper = map.getRGBA(5.f), nan = map.getRGBA(NAN);
    EXPECT_EQ(mid.g, 1.f);
    EXPECT_EQ(upper.g, 0.5f);
    EXPECT_EQ(upper.b, 0.5f) << "sample components are clamped to 1";
    EXPECT_EQ(map.getRGBA(10.f).a, 0.f);
    EXPECT_EQ(nan.r, 1.f);
    map.setSamples({});
    EXPECT_EQ(map.getNumSamples(), 3);

    Tcl_Interp* interp = m_interp;
    vxtest::PortScript s(interp);
    EXPECT_EQ(s.run(map, "setSamples {0 0 0 1} {1 1 x 1}"), TCL_ERROR);
    EXPECT_EQ(s.result(), "\"Colormap\": setSamples: sample 1 \"1 1 x 1\" is not four numbers R G B A");
    EXPECT_EQ(s.run(map, "setSamples {0 0 0 1} {1 1 1 1}"), TCL_OK);
    EXPECT_EQ(s.get(map, "getSamples"), "{0 0 0 1} {1 1 1 1}");
    EXPECT_EQ(s.get(map, "getRange"), "-10 10");
}

TEST_F(PortsTest, ColorListAndFontSelection)
{
    VxPortColorList colors(&owner, "Annotations Colors", "annotationsColors", 1);
    KxColor c;
    EXPECT_FALSE(colors.getColor(c, 1));
    ASSERT_EQ(run(owner, "annotationsColors setColor 0 {1.5 0.25 -2}"), TCL_OK);
    EXPECT_EQ(get(owner, "annotationsColors getColor 0"), "1 0.25 0");
    expectError(owner, "annotationsColors setColor 1 0 0 0", "index 1 is out of range 0..0");
    expectError(owner, "annotationsColors setColor 0 0 0", "usage: annotationsColors setColor INDEX R G B");

    VxPortFontSelection font(&owner, "Font", "font");
    QFont qfont("Helvetica", 12);
    qfont.setWeight(QFont::Bold);
    qfont.setItalic(true);
    font.setFont(&qfont);
    font.setFont(nullptr);
    EXPECT_EQ(font.getFontDescription().toStdString(), "Helvetica:Bold Italic");
    EXPECT_EQ(font.getFontSize(), 12);
    ASSERT_EQ(run(owner, "font setFont {DejaVu Sans} 14"), TCL_OK);
    EXPECT_EQ(get(owner, "font getFontDescription"), "DejaVu Sans");
    EXPECT_EQ(get(owner, "font getFont"), "{DejaVu Sans} 14 50 0");
    expectError(owner, "font setFont Helvetica 0", "the font size 0 is not positive");
    expectError(owner, "font setFont Helvetica 12 120", "the font weight 120 is out of range 0..99");
    expectError(owner, "font setFontColor 0 nan 0", "\"nan\" is not a number (NaN)");
}

TEST_F(PortsTest, GenericPortItemsByID)
{
    VxPortGeneric g(&owner, "Annotations Format", "format");
    g.insertComboBox(0, {"Auto", "Float", "Integer"}, 0);
    g.insertLabel(1, "Number of decimals");
    g.insertIntText(2, 3, 4);
    g.insertLabel(3, "Ten Power");
    g.insertIntText(4, 0);
    g.insertCheckBox(5, "contour clip", 0);
    g.setMinMax(2, 0, 10);
    EXPECT_EQ(g.findItem(4), 4);
    EXPECT_EQ(g.findItem(9), -1);
    g.untouch();

    g.setValue(5, 7);
    EXPECT_EQ(g.getValue(5), 1) << "check boxes hold 0 or 1";
    g.setValue(2, 99);
    EXPECT_EQ(g.getValue(2), 10);
    g.setValue(0, 3);
    EXPECT_EQ(g.getValue(0), 0);
    EXPECT_EQ(g.getValue(1), 0);
    EXPECT_TRUE(g.isNew(VxPort::NEW_VALUE));

    ASSERT_EQ(run(owner, "format setValue 0 2"), TCL_OK);
    EXPECT_EQ(get(owner, "format getState"), "2 10 0 1");
    expectError(owner, "format setValue 0 3", "index 3 is out of range 0..2 of item 0");
    expectError(owner, "format setValue 1 3", "there is no item 1 with a value; items: 0, 2, 4, 5");
    expectError(owner, "format getValue 8", "there is no item 8 with a value; items: 0, 2, 4, 5");

    g.setVisible(5, false);
    ASSERT_EQ(run(owner, "format setItemVisible 5 1"), TCL_OK);
    EXPECT_TRUE(g.isItemVisible(5));
    EXPECT_TRUE(g.isVisible()) << "items are shown and hidden apart from the port";
    // Counted reasons to hide nest; the port's own switch (what modules set on every update) is
    // one more reason, which show() lifts and no count undoes.
    const std::pair<std::function<void()>, bool> steps[] = {
        {[&] { g.hideMaskIncrease(), g.hideMaskIncrease(); }, false},
        {[&] { g.show(); }, false},
        {[&] { g.hideMaskDecrease(), g.hide(), g.hide(); }, false},
        {[&] { g.hideMaskDecrease(); }, false},
        {[&] { g.setVisible(true); }, true}};
    for (const auto& step : steps) {
        step.first();
        EXPECT_EQ(g.isVisible(), step.second) << "hide mask " << g.getHideMask();
    }

    g.insertComboBox(0, {"One"}, 4);
    EXPECT_EQ(g.findItem(0), 0) << "inserting an existing id replaces the item in place";
    EXPECT_EQ(g.getValue(0), 0);
}

// The verbs that many ports share are parsed in one place; each port still names its own items.
TEST_F(PortsTest, SharedVerbsNameThePortsOwnItems)
{
    VxPortToggleList toggles(&owner, "Options", "options", 2);
    VxPortMultiMenu menus(&owner, "Path", "path", 2);
    menus.setItems(0, {"a", "b"});
    VxPortColorList colors(&owner, "Colors", "colors", 2);
    VxPortGeneric generic(&owner, "Format", "format");
    generic.insertLabel(0, "decimals");
    generic.insertIntText(1, 3);
    VxPortIntTextN fields(&owner, "Average", "resolution", 3);
    struct Case
    {
        std::string line, error;
    } cases[] = {
        {"options setState 1", "setState needs 2 values, one per toggle, not 1"},
        {"path setState 0", "setState needs 2 items, one per menu, not 1"},
        {"colors setState {1 0 0} {0 1 0} {0 0 1}", "setState needs 2 colours {R G B}, one per item, not 3"},
        {"colors setState {1 0 0} {0 1}", "colour 1 \"0 1\" is not three numbers R G B"},
        {"format setState 1 2", "setState needs 1 values, one per item with a value, not 2"},
        {"resolution setState 1 2", "setState needs 3 values, one per field, not 2"},
        {"options setNum -1", "the count -1 is negative"},
        {"path getValue 0 1", "usage: path getValue [MENU]"},
        {"resolution setMinMax 0 5 1", "the minimum 5 is greater than the maximum 1"},
    };
    for (const Case& c : cases) expectError(owner, c.line, c.error);
    // A bad word changes nothing, not even the items before it.
    ASSERT_EQ(run(owner, "colors setState {0 0 1} {0 1 0}"), TCL_OK);
    EXPECT_NE(run(owner, "colors setState {1 1 1} {1 x 1}"), TCL_OK);
    EXPECT_EQ(get(owner, "colors getState"), "{0 0 1} {0 1 0}");
}

TEST_F(PortsTest, TextDrawStyleAndPointList)
{
    VxPortText text(&owner, "Values", "explicit");
    ASSERT_EQ(run(owner, "explicit setValue 10 20"), TCL_OK);
    EXPECT_EQ(text.getValue().toStdString(), "10 20");
    text.untouch();
    text.setValue("10 20");
    EXPECT_FALSE(text.isNew());
    expectError(owner, "explicit setValue", "usage: explicit setValue TEXT");

    VxPortDrawStyle style(&owner, "Draw Style", "drawStyle");
    ASSERT_EQ(run(owner, "drawStyle setValue points"), TCL_OK);
    EXPECT_EQ(style.getValue(), VxPortDrawStyle::POINTS);
    ASSERT_EQ(run(owner, "drawStyle setValue 0"), TCL_OK);
    EXPECT_EQ(style.getValue(), VxPortDrawStyle::WIREFRAME);
    expectError(owner, "drawStyle setValue 4", "index 4 is out of range 0..3");
    expectError(owner, "drawStyle getValue 1", "usage: drawStyle getValue");
    expectError(owner, "drawStyle setCulling 1", "this module offers no back-face culling");
    style.cullingControls();
    ASSERT_EQ(run(owner, "drawStyle setCulling 1"), TCL_OK);
    EXPECT_TRUE(style.isCulling());

    VxPort3DPointList points(&owner, "Points", "points");
    ASSERT_EQ(run(owner, "points appendPoint 1 2 3"), TCL_OK);
    ASSERT_EQ(run(owner, "points appendPoint {4 5 6}"), TCL_OK);
    ASSERT_EQ(run(owner, "points setValue 0 -1 0 1"), TCL_OK);
    ASSERT_EQ(points.getValue().size(), 2u);
    EXPECT_EQ(points.getValue()[0], SbVec3f(-1, 0, 1));
    EXPECT_EQ(get(owner, "points getValue 1"), "4 5 6");
    expectError(owner, "points setValue 2 0 0 0", "index 2 is out of range 0..1");
    expectError(owner, "points appendPoint 1 nan 3", "\"nan\" is not a number (NaN)");
    expectError(owner, "points appendPoint {1 2}", "\"1 2\" is not a point X Y Z");
    ASSERT_EQ(run(owner, "points removePoint 0"), TCL_OK);
    EXPECT_EQ(get(owner, "points getState"), "{4 5 6}");
}

// Owner with a main input, as modules have.
class DataOwner : public PortOwner
{
public:
    DataOwner() : PortOwner("module") {}
    VxConnection data{this, "Data", "data"};
};

TEST_F(PortsTest, RangeSliderTakesTheDataRange)
{
    DataOwner module;
    VxPortRangeTplSlider<VxPortFloatSlider> threshold(&module, "Threshold", "threshold",
                                                      new VxRangeProviderSpatialData(&module));
    threshold.setMinMax(0.f, 1.f);
    EXPECT_FALSE(threshold.reset()) << "no data, no range";

    auto* field = new VxUniformScalarField3(KxDim3l(4, 1, 1), KxPrimType::INT16);
    field->ref();
    int16_t* v = static_cast<int16_t*>(field->lattice().dataPtr());
    v[0] = 10, v[1] = -7, v[2] = 50, v[3] = 30000;
    field->setUndefinedValue(30000);
    ASSERT_TRUE(module.data.connect(field));
    EXPECT_TRUE(threshold.getRangeProvider()->isDiscrete());

    // A value nobody chose moves to the middle of the data's range (undefined values left out).
    threshold.untouch();
    threshold.getRangeProvider()->reset();
    EXPECT_EQ(threshold.getMinValue(), -7.f);
    EXPECT_EQ(threshold.getMaxValue(), 50.f);
    EXPECT_EQ(threshold.getValue(), 21.5f);

    // A value a script chose stays, and the range widens to hold it.
    ASSERT_EQ(run(module, "threshold setMinMax 0 100"), TCL_OK);
    ASSERT_EQ(run(module, "threshold setValue 80"), TCL_OK);
    ASSERT_EQ(run(module, "threshold resetRange"), TCL_OK);
    EXPECT_EQ(threshold.getMinValue(), -7.f);
    EXPECT_EQ(threshold.getMaxValue(), 80.f);
    EXPECT_EQ(threshold.getValue(), 80.f);
    // After the module ran, the value is no longer a fresh choice.
    threshold.untouch();
    threshold.reset();
    EXPECT_EQ(threshold.getValue(), 21.5f);

    module.data.disconnect();
    expectError(module, "threshold resetRange", "there is no data to take a range from");
    field->unref();
}

// Every port that holds state: a state reached through the verbs, saved and replayed on a fresh
// port of the same kind, reads back the same.
struct SaveCase
{
    const char* name;
    std::function<VxPort*(VxObject&)> make;
    std::vector<const char*> setup;
    std::vector<const char*> compare = {"getState"};
};

TEST_F(PortsTest, SavedStateRestoresEveryPortKind)
{
    VxObjectPool* pool = VxApplication::instance()->objectPool();
    auto* map = new VxColormap;
    map->setLabel("savedMap");
    ASSERT_TRUE(pool->addObject(map, false));

    const std::vector<SaveCase> cases = {
        {"float slider",
         [](VxObject& o) { return new VxPortFloatSlider(&o, "L", "p"); },
         {"setMinMax 0 255", "setValue 80.5"}},
        {"int slider",
         [](VxObject& o) { return new VxPortIntSlider(&o, "L", "p"); },
         {"setMinMax -5 40", "setValue 33"}},
        {"int range slider",
         [](VxObject& o) { return new VxPortRangeTplSlider<VxPortIntSlider>(&o, "L", "p"); },
         {"setMinMax 0 9", "setValue 4"}},
        {"range slider",
         [](VxObject& o) { return new VxPortRangeTplSlider<VxPortFloatSlider>(&o, "L", "p"); },
         {"setMinMax 1e-3 2", "setValue 1.25"}},
        {"toggle list",
         [](VxObject& o) { return new VxPortToggleList(&o, "L", "p", 3); },
         {"setValue 1 1", "setValue 2 1"}},
        {"on/off", [](VxObject& o) { return new VxPortOnOff(&o, "L", "p"); }, {"setValue 1"}},
        {"radio box", [](VxObject& o) { return new VxPortRadioBox(&o, "L", "p", 3); }, {"setIndex 2"}},
        {"int fields",
         [](VxObject& o) { return new VxPortIntTextN(&o, "L", "p", 3); },
         {"setMinMax 1 1 10", "setValue 0 -7", "setValue 1 12", "setValue 2 5"},
         {"getState", "getMaxValue 1"}},
        {"float fields",
         [](VxObject& o) { return new VxPortFloatTextN(&o, "L", "p", 2); },
         {"setMinMax 0 16 4096", "setValue 0 100.25", "setValue 1 -1e30"},
         {"getState", "getMinValue 0"}},
        {"menus",
         [](VxObject& o) {
             auto* m = new VxPortMultiMenu(&o, "L", "p", 2);
             m->setItems(1, {"a", "b", "c"});
             return m;
         },
         {"setValue 1 2"}},
        {"colour map",
         [](VxObject& o) { return new VxPortColormap(&o, "L", "p"); },
         {"connect savedMap", "setDefaultColor 0.2 0.4 0.6", "setDefaultAlpha 0.25"},
         {"getState", "getSource"}},
        {"colour list",
         [](VxObject& o) { return new VxPortColorList(&o, "L", "p", 2); },
         {"setColor 1 0.1 0.2 0.3"}},
        {"font",
         [](VxObject& o) { return new VxPortFontSelection(&o, "L", "p"); },
         {"setFont {DejaVu Sans} 14 75 1", "setFontColor 0 1 0"}},
        {"generic",
         [](VxObject& o) {
             auto* g = new VxPortGeneric(&o, "L", "p");
             g->insertCheckBox(0, "check");
             g->insertLabel(1, "label");
             g->insertIntText(2, 0);
             g->insertComboBox(3, {"x", "y", "z"}, 0);
             return g;
         },
         {"setValue 0 1", "setValue 2 42", "setValue 3 2"}},
        {"text",
         [](VxObject& o) { return new VxPortText(&o, "L", "p"); },
         {"setValue {10 20 \"x {y}\" $z [w]}"}},
        {"draw style",
         [](VxObject& o) {
             auto* d = new VxPortDrawStyle(&o, "L", "p");
             d->cullingControls();
             return d;
         },
         {"setValue points", "setCulling 1"}},
        {"one point", [](VxObject& o) { return new VxPort3DPointList(&o, "L", "p"); }, {"appendPoint 1 2 3"}},
        {"points",
         [](VxObject& o) { return new VxPort3DPointList(&o, "L", "p", 1); },
         {"appendPoint 1 2 3", "appendPoint -0.1 1e-7 3e9"}},
        {"no points", [](VxObject& o) { return new VxPort3DPointList(&o, "L", "p", 2); }, {"setNum 0"}},
    };

    for (const SaveCase& c : cases) {
        SCOPED_TRACE(c.name);
        PortOwner saved("saved"), restored("restored"), fresh("fresh");
        std::unique_ptr<VxPort> a(c.make(saved)), b(c.make(restored)), f(c.make(fresh));
        for (const char* line : c.setup)
            ASSERT_EQ(run(saved, std::string("p ") + line), TCL_OK) << line << ": " << result();
        const QStringList lines = a->saveState();
        for (const QString& line : lines)
            ASSERT_EQ(run(restored, "p " + line.toStdString()), TCL_OK)
                << line.toStdString() << ": " << result();
        for (const char* query : c.compare) {
            std::string q = std::string("p ") + query;
            EXPECT_EQ(get(restored, q), get(saved, q))
                << query << " after " << lines.join(" | ").toStdString();
            EXPECT_NE(get(fresh, q), get(saved, q)) << query << ": the setup must leave the default state";
        }
    }
    pool->removeAll();
}

} // namespace
