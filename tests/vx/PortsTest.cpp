// Ports as modules and scripts use them: values, ranges and change flags, the script verbs with
// their exact error texts, saved states, and redesigned ports kept for old scripts.
#include "../support/TestHost.h"

#include <kx/KxHandle.h>
#include <vx/VxColormap.h>
#include <vx/VxPort3DPointList.h>
#include <vx/VxPortButtonList.h>
#include <vx/VxPortColorList.h>
#include <vx/VxPortColormap.h>
#include <vx/VxPortDeprecatedSubstitute.h>
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

#include <cmath>
#include <cstdlib>
#include <functional>
#include <memory>

namespace {

using namespace vxtest;

// An object that owns ports; counts the touches it hears of.
class PortOwner : public VxObject
{
public:
    explicit PortOwner(const QString& name) { setLabel(name); }
    void portTouched(VxPort*) override { ++touches; }
    int touches = 0;
};

// Owner with a main input, as modules have.
class DataOwner : public PortOwner
{
public:
    DataOwner() : PortOwner("module") {}
    VxConnection data{this, "Data", "data"};
};

// Runs "PORT VERB ..." lines through an object's parse(), as the interpreter does.
class PortsTest : public ::testing::Test
{
protected:
    PortsTest() : m_interp(Tcl_CreateInterp()) {}
    ~PortsTest() override { Tcl_DeleteInterp(m_interp); }

    // The Tcl code; the result in m_result.
    int run(VxObject& o, const std::string& line)
    {
        int n = 0;
        const char** parts = nullptr;
        if (Tcl_SplitList(nullptr, line.c_str(), &n, &parts) != TCL_OK) return -1;
        std::vector<std::string> words{o.getName().toStdString()};
        words.insert(words.end(), parts, parts + n);
        Tcl_Free(reinterpret_cast<char*>(parts));
        std::vector<char*> argv;
        for (std::string& w : words) argv.push_back(&w[0]);
        Tcl_ResetResult(m_interp);
        const int code = o.parse(m_interp, int(argv.size()), argv.data());
        m_result = Tcl_GetStringResult(m_interp);
        return code;
    }
    int run(const std::string& line) { return run(owner, line); }
    // The result of a line that must succeed.
    std::string get(VxObject& o, const std::string& line)
    {
        return run(o, line) == TCL_OK ? m_result : "<error: " + m_result + ">";
    }
    std::string get(const std::string& line) { return get(owner, line); }
    void ok(const std::string& line) { EXPECT_EQ(run(line), TCL_OK) << line << ": " << m_result; }
    // The error text of a line that must fail.
    std::string fails(VxObject& o, const std::string& line)
    {
        return run(o, line) == TCL_ERROR ? m_result : "<no error: " + m_result + ">";
    }
    // The line fails with the text, led by the names of the owner and of the line's port.
    void expectError(const std::string& line, const std::string& text, VxObject* o = nullptr)
    {
        VxObject& target = o ? *o : owner;
        EXPECT_EQ(fails(target, line), "\"" + target.getName().toStdString() + "\" port \"" +
                                           line.substr(0, line.find(' ')) + "\": " + text);
    }

    Tcl_Interp* m_interp;
    std::string m_result;
    PortOwner owner{"obj"};
};

TEST_F(PortsTest, FloatSliderClampsAndSetsChangeFlags)
{
    VxPortFloatSlider s(&owner, "Threshold", "threshold");
    s.setMinMax(0.f, 255.f);
    EXPECT_EQ(s.getFlags(), VxPort::NEW_RANGE);
    s.untouch();
    s.setValue(300.f);
    EXPECT_EQ(s.getValue(), 255.f);
    EXPECT_EQ(s.getFlags(), VxPort::NEW_VALUE);
    s.untouch();
    // The same value again is no change; NaN is refused.
    s.setValue(255.f);
    s.setValue(NAN);
    EXPECT_FALSE(s.isNew());
    EXPECT_EQ(s.getValue(), 255.f);
    // A narrower range pulls the value in and says so; the same range again is no change.
    s.setMinMax(0.f, 100.f);
    EXPECT_EQ(s.getValue(), 100.f);
    EXPECT_EQ(s.getFlags(), VxPort::NEW_RANGE | VxPort::NEW_VALUE);
    s.untouch();
    s.setMinMax(0.f, 100.f);
    EXPECT_FALSE(s.isNew());
    s.setMinMax(50.f, 10.f);
    EXPECT_EQ(get("threshold getState"), "10 50 50");
}

TEST_F(PortsTest, FloatSliderVerbsAndTheirErrors)
{
    VxPortFloatSlider s(&owner, "Threshold", "threshold");
    s.setAliasName("level");
    ok("threshold setMinMax -10 255");
    ok("level setValue 80.5");
    EXPECT_EQ(get("threshold getState"), "-10 255 80.5");
    ok("threshold setValue 1e9");
    EXPECT_EQ(get("threshold getValue"), "255");

    expectError("threshold setValue", "usage: threshold setValue VALUE");
    expectError("threshold setValue 1 2", "usage: threshold setValue VALUE");
    expectError("threshold setValue abc", "\"abc\" is not a number");
    expectError("threshold setValue nan", "\"nan\" is not a number (NaN)");
    expectError("threshold setMinMax 5 1", "the minimum 5 is greater than the maximum 1");
    expectError("threshold setMinMax 5", "usage: threshold setMinMax MIN MAX");
    expectError("threshold setState 1 2", "usage: threshold setState MIN MAX VALUE");
    expectError("threshold setIncrement -1", "the increment -1 is negative or infinite");
    expectError("threshold getValue 3", "usage: threshold getValue");
    const std::string unknown = fails(owner, "threshold frobnicate");
    EXPECT_EQ(unknown.rfind("\"obj\" port \"threshold\": unknown verb \"frobnicate\"; verbs: setValue, ", 0),
              0u)
        << unknown;
    EXPECT_EQ(get("threshold getState"), "-10 255 255") << "failed commands change nothing";

    // Formats go to printf: only a single floating-point conversion is taken.
    expectError("threshold setFormat %d",
                "\"%d\" is not a format for one floating-point number, such as \"%g\" or \"%.2f\"");
    for (const char* bad : {"{%g %s}", "{%f %f}", "%.2"})
        EXPECT_NE(run(std::string("threshold setFormat ") + bad), TCL_OK);
    ok("threshold setFormat {%.2f %%}");
    EXPECT_EQ(s.formatValue(0.5f).toStdString(), "0.50 %");
}

TEST_F(PortsTest, FloatSliderDragSimulation)
{
    VxPortFloatSlider s(&owner, "Threshold", "threshold");
    s.setMinMax(0.f, 100.f);
    // Tracking with interactive reports: each move sets the value, release asks for one more run.
    s.setInteractiveTracking(true, true);
    s.untouch();
    ok("threshold drag 10");
    EXPECT_EQ(get("threshold isInteractive"), "1");
    EXPECT_EQ(s.getValue(), 10.f);
    EXPECT_TRUE(s.isNew(VxPort::NEW_VALUE));
    s.untouch();
    ok("threshold release");
    EXPECT_FALSE(s.isInteractive());
    EXPECT_TRUE(s.isNew(VxPort::NEW_VALUE));

    // Without tracking the value arrives on release only, and no drag is reported.
    s.setInteractiveTracking(false, false);
    s.untouch();
    ok("threshold drag 150");
    EXPECT_FALSE(s.isInteractive() || s.isNew());
    EXPECT_EQ(s.getValue(), 10.f);
    ok("threshold release");
    EXPECT_EQ(s.getValue(), 100.f);
    EXPECT_TRUE(s.isNew(VxPort::NEW_VALUE));
    expectError("threshold drag nan", "\"nan\" is not a number (NaN)");
}

TEST_F(PortsTest, IntSliderClampsAndRejectsFractions)
{
    VxPortIntSlider s(&owner, "Number Of Cores", "numberOfCores");
    s.setMinMax(1, 8);
    s.setValue(8);
    s.untouch();
    s.setMinMax(1, 4);
    EXPECT_EQ(s.getValue(), 4);
    EXPECT_EQ(s.getFlags(), VxPort::NEW_RANGE | VxPort::NEW_VALUE);
    ok("numberOfCores setValue -3");
    EXPECT_EQ(get("numberOfCores getState"), "1 4 1");
    expectError("numberOfCores setValue 2.5", "\"2.5\" is not an integer");
    expectError("numberOfCores setMinMax 4 2", "the minimum 4 is greater than the maximum 2");
}

TEST_F(PortsTest, ToggleListKeepsPerItemFlags)
{
    VxPortToggleList t(&owner, "Options", "options", 2);
    t.setValue(0, true);
    t.untouch();
    ok("options setValue 1 1");
    EXPECT_TRUE(t.isItemNew(1));
    EXPECT_FALSE(t.isItemNew(0));
    EXPECT_EQ(get("options isItemNew 1"), "1");
    t.untouch();
    EXPECT_FALSE(t.isItemNew(1) || t.isNew());

    // Unchanged values are no news; a single value addresses the first toggle.
    ok("options setValue 1 on");
    EXPECT_FALSE(t.isNew());
    ok("options setValue 0");
    EXPECT_TRUE(t.isItemNew(0));
    EXPECT_EQ(get("options getState"), "0 1");

    expectError("options setValue 2 1", "index 2 is out of range 0..1");
    expectError("options setValue -1 1", "index -1 is out of range 0..1");
    expectError("options setValue 0 maybe", "\"maybe\" is not a boolean");
    expectError("options setValue", "usage: options setValue [INDEX] ON");

    t.setNum(3);
    EXPECT_FALSE(t.getValue(2) || t.getValue(7));
    t.setNum(0);
    expectError("options getValue", "index 0 is out of range (the port has no items)");

    VxPortOnOff onOff(&owner, "Down Sample", "downSampleOnOff");
    onOff.setValue(true);
    ok("downSampleOnOff setValue 0");
    EXPECT_FALSE(onOff.getValue());
}

TEST_F(PortsTest, RadioBoxSelectsWithinItsButtons)
{
    VxPortRadioBox r(&owner, "Spacing", "spacing", 2);
    r.untouch();
    ok("spacing setIndex 1");
    EXPECT_EQ(r.getValue(), 1);
    EXPECT_TRUE(r.isNew(VxPort::NEW_VALUE));
    expectError("spacing setValue 2", "index 2 is out of range 0..1");
    r.setValue(5);
    EXPECT_EQ(r.getIndex(), 1);
    // Fewer buttons pull the selection in.
    r.setNum(4);
    r.setIndex(3);
    r.untouch();
    r.setNum(2);
    EXPECT_EQ(r.getIndex(), 1);
    EXPECT_EQ(r.getFlags(), VxPort::NEW_VALUE | VxPort::NEW_ITEMS);
}

TEST_F(PortsTest, ButtonsStayHitUntilRunOrWhileSnapped)
{
    VxPortDoIt doIt(&owner, "Action", "doIt");
    VxPortButtonList buffer(&owner, "Buffer", "buffer", 4);
    doIt.untouch();
    EXPECT_EQ(doIt.getValue(), -1);
    ok("doIt hit");
    EXPECT_TRUE(doIt.wasHit(0));
    EXPECT_EQ(doIt.getValue(), 0);
    doIt.untouch();
    EXPECT_FALSE(doIt.wasHit(0));
    // Pressing again is always news, even when the button is still down.
    const int touches = owner.touches;
    doIt.hit();
    doIt.hit();
    EXPECT_EQ(owner.touches, touches + 2);

    ok("buffer snap 2 1");
    for (int run = 0; run < 3; ++run) {
        EXPECT_TRUE(buffer.wasHit(2));
        EXPECT_FALSE(buffer.wasHit(1));
        buffer.untouch();
    }
    ok("buffer snap 2 0");
    EXPECT_FALSE(buffer.wasHit(2));
    ok("buffer hit 3");
    EXPECT_EQ(get("buffer wasHit 3"), "1");
    expectError("buffer hit 4", "index 4 is out of range 0..3");
    expectError("buffer snap 1", "usage: buffer snap INDEX ON");
    expectError("doIt hit x", "\"x\" is not an integer");
    EXPECT_TRUE(doIt.saveState().isEmpty() && buffer.saveState().isEmpty());
}

TEST_F(PortsTest, TextFieldsClampPerField)
{
    VxPortFloatTextN values(&owner, "Values", "uniform", 3);
    values.setMinMax(2, 1.f, 200.f);
    EXPECT_EQ(values.getValue(2), 1.f) << "the value moves into a new range";
    values.setValue(2, 500.f);
    values.setValue(0, -1e30f); // fields without a range take any number
    values.setValue(1, NAN);    // refused
    EXPECT_EQ(get("uniform getValue"), "-1e+30 0 200");
    ok("uniform setValue 1 2.5");
    EXPECT_EQ(get("uniform getValue 1"), "2.5");
    expectError("uniform setValue 3 1", "index 3 is out of range 0..2");
    expectError("uniform setValue 1 inf5", "\"inf5\" is not a number");
    expectError("uniform setValue 2", "usage: uniform setValue INDEX VALUE");
    expectError("uniform setMinMax 0 9 1", "the minimum 9 is greater than the maximum 1");

    VxPortIntTextN average(&owner, "Average", "resolution", 3);
    average.setMinMax(1, 64);
    ok("resolution setState {0 2 100}");
    EXPECT_EQ(get("resolution getState"), "1 2 64");
    expectError("resolution setValue 0 1.5", "\"1.5\" is not an integer");
    expectError("resolution setState 1 2", "setState needs 3 values, one per field, not 2");
    EXPECT_EQ(get("resolution getState"), "1 2 64") << "a bad state changes nothing";
}

TEST_F(PortsTest, MultiMenuSelectsExistingItems)
{
    VxPortMultiMenu m(&owner, "Annotations Path", "annotationsPath", 2);
    m.setItems(0, {"tangential path", "horizontal path", "vertical path"});
    EXPECT_EQ(m.getValue(1), -1) << "a menu without items selects nothing";
    m.untouch();
    ok("annotationsPath setValue 2");
    EXPECT_EQ(m.getValue(0), 2);
    EXPECT_TRUE(m.isNew(VxPort::NEW_VALUE));
    expectError("annotationsPath setValue 3", "index 3 is out of range 0..2");
    expectError("annotationsPath setValue 1 0", "index 0 is out of range (the port has no items)");
    EXPECT_EQ(get("annotationsPath getItems 0"), "{tangential path} {horizontal path} {vertical path}");
    m.setItems(0, {"a", "b"});
    EXPECT_EQ(m.getValue(0), 0) << "a selection that is gone falls back to the first item";
}

TEST_F(PortsTest, ColormapPortUsesDefaultsUntilConnected)
{
    VxPortColormap port(&owner, "Colormap", "colormap");
    port.setDefaultColor(SbColor(1.f, 0.8f, 0.4f));
    port.setDefaultAlpha(0.5f);
    EXPECT_EQ(port.getColor(123.f), SbColor(1.f, 0.8f, 0.4f));
    EXPECT_EQ(port.getPackedColor(0.f), 0xffcc6680u);
    port.enableAlpha(false);
    EXPECT_EQ(port.getAlpha(0.f), 1.f);
    EXPECT_EQ(port.getPackedColor(0.f), 0xffcc66ffu);
    port.enableAlpha(true);
    ok("colormap setDefaultColor 2 -1 0.5");
    EXPECT_EQ(get("colormap getDefaultColor"), "1 0 0.5") << "components are clamped";
    expectError("colormap setDefaultColor 1 0", "usage: colormap setDefaultColor R G B");
    expectError("colormap setDefaultAlpha NaN", "\"NaN\" is not a number (NaN)");

    VxObjectPool* pool = VxApplication::instance()->objectPool();
    auto* map = new VxColormap;
    map->setLabel("ramp");
    ASSERT_TRUE(pool->addObject(map, false));
    map->setRange(100.f, 200.f);
    map->setSamples({{0.f, 0.f, 0.f, 0.f}, {1.f, 0.5f, 0.f, 1.f}});
    port.untouch();
    ok("colormap connect ramp");
    EXPECT_EQ(port.getColormap(), map);
    EXPECT_TRUE(port.isNew(VxPort::NEW_SOURCE));
    EXPECT_EQ(port.getColor(150.f), SbColor(0.5f, 0.25f, 0.f));
    EXPECT_EQ(port.getAlpha(150.f), 0.5f);
    EXPECT_EQ(port.getColor(-1e9f), SbColor(0.f, 0.f, 0.f)) << "values below the range take the first colour";
    EXPECT_EQ(port.getPackedColor(1e9f), 0xff8000ffu);
    EXPECT_EQ(get("colormap getColor 175"), "0.75 0.375 0");
    // A change of the map reaches its readers.
    port.untouch();
    map->setRange(0.f, 1.f);
    EXPECT_TRUE(port.isNew(VxPort::NEW_DATA));

    ASSERT_TRUE(pool->addObject(new PortOwner("notAMap"), false));
    expectError("colormap connect nothing", "cannot connect: there is no object \"nothing\"");
    const std::string wrongType = fails(owner, "colormap connect notAMap");
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
    EXPECT_EQ(map.getRGBA(0.f).g, 1.f);
    EXPECT_EQ(map.getRGBA(5.f).g, 0.5f);
    EXPECT_EQ(map.getRGBA(5.f).b, 0.5f) << "sample components are clamped to 1";
    EXPECT_EQ(map.getRGBA(10.f).a, 0.f);
    EXPECT_EQ(map.getRGBA(NAN).r, 1.f);
    map.setSamples({});
    EXPECT_EQ(map.getNumSamples(), 3);
    EXPECT_EQ(run(map, "setSamples {0 0 0 1} {1 1 x 1}"), TCL_ERROR);
    EXPECT_EQ(m_result, "\"Colormap\": setSamples: sample 1 \"1 1 x 1\" is not four numbers R G B A");
    ASSERT_EQ(run(map, "setSamples {0 0 0 1} {1 1 1 1}"), TCL_OK);
    EXPECT_EQ(get(map, "getSamples"), "{0 0 0 1} {1 1 1 1}");
    EXPECT_EQ(get(map, "getRange"), "-10 10");
}

TEST_F(PortsTest, ColorListAndFontSelection)
{
    VxPortColorList colors(&owner, "Annotations Colors", "annotationsColors", 1);
    KxColor c;
    EXPECT_FALSE(colors.getColor(c, 1));
    ok("annotationsColors setColor 0 {1.5 0.25 -2}");
    EXPECT_EQ(get("annotationsColors getColor 0"), "1 0.25 0");
    expectError("annotationsColors setColor 1 0 0 0", "index 1 is out of range 0..0");
    expectError("annotationsColors setColor 0 0 0", "usage: annotationsColors setColor INDEX R G B");

    VxPortFontSelection font(&owner, "Font", "font");
    QFont qfont("Helvetica", 12);
    qfont.setWeight(QFont::Bold);
    qfont.setItalic(true);
    font.setFont(&qfont);
    font.setFont(nullptr);
    EXPECT_EQ(font.getFontDescription().toStdString(), "Helvetica:Bold Italic");
    ok("font setFont {DejaVu Sans} 14");
    EXPECT_EQ(get("font getFont"), "{DejaVu Sans} 14 50 0");
    expectError("font setFont Helvetica 0", "the font size 0 is not positive");
    expectError("font setFont Helvetica 12 120", "the font weight 120 is out of range 0..99");
    expectError("font setFontColor 0 nan 0", "\"nan\" is not a number (NaN)");
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
    EXPECT_EQ(g.getValue(0) + g.getValue(1), 0);
    EXPECT_TRUE(g.isNew(VxPort::NEW_VALUE));
    ok("format setValue 0 2");
    EXPECT_EQ(get("format getState"), "2 10 0 1");
    expectError("format setValue 0 3", "index 3 is out of range 0..2 of item 0");
    expectError("format setValue 1 3", "there is no item 1 with a value; items: 0, 2, 4, 5");
    expectError("format getValue 8", "there is no item 8 with a value; items: 0, 2, 4, 5");

    g.setVisible(5, false);
    ok("format setItemVisible 5 1");
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
    const std::pair<const char*, const char*> cases[] = {
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
    for (const auto& c : cases) expectError(c.first, c.second);
    // A bad word changes nothing, not even the items before it.
    ok("colors setState {0 0 1} {0 1 0}");
    EXPECT_NE(run("colors setState {1 1 1} {1 x 1}"), TCL_OK);
    EXPECT_EQ(get("colors getState"), "{0 0 1} {0 1 0}");
}

TEST_F(PortsTest, TextDrawStyleAndPointList)
{
    VxPortText text(&owner, "Values", "explicit");
    ok("explicit setValue 10 20");
    EXPECT_EQ(text.getValue().toStdString(), "10 20");
    text.untouch();
    text.setValue("10 20");
    EXPECT_FALSE(text.isNew());
    expectError("explicit setValue", "usage: explicit setValue TEXT");

    VxPortDrawStyle style(&owner, "Draw Style", "drawStyle");
    ok("drawStyle setValue points");
    EXPECT_EQ(style.getValue(), VxPortDrawStyle::POINTS);
    ok("drawStyle setValue 0");
    EXPECT_EQ(style.getValue(), VxPortDrawStyle::WIREFRAME);
    expectError("drawStyle setValue 4", "index 4 is out of range 0..3");
    expectError("drawStyle getValue 1", "usage: drawStyle getValue");
    expectError("drawStyle setCulling 1", "this module offers no back-face culling");
    style.cullingControls();
    ok("drawStyle setCulling 1");
    EXPECT_TRUE(style.isCulling());

    VxPort3DPointList points(&owner, "Points", "points");
    ok("points appendPoint 1 2 3");
    ok("points appendPoint {4 5 6}");
    ok("points setValue 0 -1 0 1");
    EXPECT_EQ(get("points getState"), "{-1 0 1} {4 5 6}");
    expectError("points setValue 2 0 0 0", "index 2 is out of range 0..1");
    expectError("points appendPoint 1 nan 3", "\"nan\" is not a number (NaN)");
    expectError("points appendPoint {1 2}", "\"1 2\" is not a point X Y Z");
    ok("points removePoint 0");
    EXPECT_EQ(get("points getValue 0"), "4 5 6");
}

TEST_F(PortsTest, RangeSliderTakesTheDataRange)
{
    DataOwner module;
    VxPortRangeTplSlider<VxPortFloatSlider> threshold(&module, "Threshold", "threshold",
                                                      new VxRangeProviderSpatialData(&module));
    threshold.setMinMax(0.f, 1.f);
    EXPECT_FALSE(threshold.reset()) << "no data, no range";

    KxHandle<VxUniformScalarField3> field(new VxUniformScalarField3(KxDim3l(4, 1, 1), KxPrimType::INT16));
    int16_t* v = static_cast<int16_t*>(field->lattice().dataPtr());
    v[0] = 10, v[1] = -7, v[2] = 50, v[3] = 30000;
    field->setUndefinedValue(30000);
    ASSERT_TRUE(module.data.connect(field.get()));
    EXPECT_TRUE(threshold.getRangeProvider()->isDiscrete());

    // A value nobody chose moves to the middle of the data's range (undefined values left out).
    threshold.untouch();
    threshold.getRangeProvider()->reset();
    EXPECT_EQ(get(module, "threshold getState"), "-7 50 21.5");
    // A value a script chose stays, and the range widens to hold it.
    ASSERT_EQ(run(module, "threshold setMinMax 0 100"), TCL_OK);
    ASSERT_EQ(run(module, "threshold setValue 80"), TCL_OK);
    ASSERT_EQ(run(module, "threshold resetRange"), TCL_OK);
    EXPECT_EQ(get(module, "threshold getState"), "-7 80 80");
    // After the module ran, the value is no longer a fresh choice.
    threshold.untouch();
    threshold.reset();
    EXPECT_EQ(threshold.getValue(), 21.5f);
    module.data.disconnect();
    expectError("threshold resetRange", "there is no data to take a range from", &module);
}

// Factories of ports of kind P named "p", with the extra constructor arguments; prepared() then
// prepares the port.
template <class P, class... Extra> std::function<VxPort*(VxObject&)> make(Extra... extra)
{
    return [=](VxObject& o) { return new P(&o, "L", "p", extra...); };
}
template <class P, class Prepare, class... Extra>
std::function<VxPort*(VxObject&)> prepared(Prepare prepare, Extra... extra)
{
    return [=](VxObject& o) {
        auto* p = new P(&o, "L", "p", extra...);
        prepare(*p);
        return p;
    };
}

// Every port that holds state: a state reached through the verbs, saved and replayed on a fresh
// port of the same kind, reads back the same.
TEST_F(PortsTest, SavedStateRestoresEveryPortKind)
{
    VxObjectPool* pool = VxApplication::instance()->objectPool();
    auto* map = new VxColormap;
    map->setLabel("savedMap");
    ASSERT_TRUE(pool->addObject(map, false));

    const struct
    {
        std::function<VxPort*(VxObject&)> make;
        std::vector<const char*> setup;
        std::vector<const char*> compare = {"getState"};
    } cases[] = {
        {make<VxPortFloatSlider>(), {"setMinMax 0 255", "setValue 80.5"}},
        {make<VxPortIntSlider>(), {"setMinMax -5 40", "setValue 33"}},
        {make<VxPortRangeTplSlider<VxPortIntSlider>>(), {"setMinMax 0 9", "setValue 4"}},
        {make<VxPortRangeTplSlider<VxPortFloatSlider>>(), {"setMinMax 1e-3 2", "setValue 1.25"}},
        {make<VxPortToggleList>(3), {"setValue 1 1", "setValue 2 1"}},
        {make<VxPortOnOff>(), {"setValue 1"}},
        {make<VxPortRadioBox>(3), {"setIndex 2"}},
        {make<VxPortIntTextN>(3),
         {"setMinMax 1 1 10", "setValue 0 -7", "setValue 1 12", "setValue 2 5"},
         {"getState", "getMaxValue 1"}},
        {make<VxPortFloatTextN>(2),
         {"setMinMax 0 16 4096", "setValue 0 100.25", "setValue 1 -1e30"},
         {"getState", "getMinValue 0"}},
        {prepared<VxPortMultiMenu>(
             [](VxPortMultiMenu& m) {
                 m.setItems(1, {"a", "b", "c"});
             },
             2),
         {"setValue 1 2"}},
        {make<VxPortColormap>(),
         {"connect savedMap", "setDefaultColor 0.2 0.4 0.6", "setDefaultAlpha 0.25"},
         {"getState", "getSource"}},
        {make<VxPortColorList>(2), {"setColor 1 0.1 0.2 0.3"}},
        {make<VxPortFontSelection>(), {"setFont {DejaVu Sans} 14 75 1", "setFontColor 0 1 0"}},
        {prepared<VxPortGeneric>([](VxPortGeneric& g) {
             g.insertCheckBox(0, "check");
             g.insertLabel(1, "label");
             g.insertIntText(2, 0);
             g.insertComboBox(3, {"x", "y", "z"}, 0);
         }),
         {"setValue 0 1", "setValue 2 42", "setValue 3 2"}},
        {make<VxPortText>(), {"setValue {10 20 \"x {y}\" $z [w]}"}},
        {prepared<VxPortDrawStyle>([](VxPortDrawStyle& d) { d.cullingControls(); }),
         {"setValue points", "setCulling 1"}},
        {make<VxPort3DPointList>(), {"appendPoint 1 2 3"}},
        {make<VxPort3DPointList>(1), {"appendPoint 1 2 3", "appendPoint -0.1 1e-7 3e9"}},
        {make<VxPort3DPointList>(2), {"setNum 0"}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.setup.back());
        PortOwner saved("saved"), restored("restored"), fresh("fresh");
        std::unique_ptr<VxPort> a(c.make(saved)), b(c.make(restored)), f(c.make(fresh));
        for (const char* line : c.setup)
            ASSERT_EQ(run(saved, std::string("p ") + line), TCL_OK) << line << ": " << m_result;
        const QStringList lines = a->saveState();
        for (const QString& line : lines)
            ASSERT_EQ(run(restored, "p " + line.toStdString()), TCL_OK)
                << line.toStdString() << ": " << m_result;
        for (const char* query : c.compare) {
            const std::string q = std::string("p ") + query;
            EXPECT_EQ(get(restored, q), get(saved, q))
                << query << " after " << lines.join(" | ").toStdString();
            EXPECT_NE(get(fresh, q), get(saved, q)) << query << ": the setup must leave the default state";
        }
    }
    pool->removeAll();
}

using OptionsPort = VxPortDeprecatedSubstitute<VxPortToggleList, VxPortToggleList, 920, 1100>;

// Each test starts from a host that allows deprecation warnings, declares version 919 and has no
// RUNNING_TEST in its environment; the version and the permission are put back afterwards.
class DeprecatedPortTest : public PortsTest
{
protected:
    void SetUp() override
    {
        unsetenv("RUNNING_TEST");
        m_message->setConsole(nullptr);
        m_message->clearRecords();
        m_interpreter->setCompatibilityVersion(919);
    }
    void TearDown() override
    {
        m_interpreter->setCompatibilityVersion(VxInterpreter::CURRENT_VERSION);
        m_interpreter->setDeprecationWarningAllowed(true);
    }
    int run(const std::string& line) { return PortsTest::run(m_owner, line); }

    VxMessage* m_message = messages();
    VxInterpreter* m_interpreter = VxApplication::instance()->interpreter();
    PortOwner m_owner{"Isosurface"};
    OptionsPort options{&m_owner, "Options", "options"};
};

// The old port is hidden, unlisted and unsaved; untouching the owner clears both.
TEST_F(DeprecatedPortTest, OldPortIsHiddenUnlistedUnsavedAndUntouchedWithTheNewOne)
{
    EXPECT_EQ(m_owner.getAllPorts(), QList<VxPort*>{&options});
    EXPECT_EQ(m_owner.findPort("options"), &options);
    EXPECT_GT(options.getDeprecatedPort().getHideMask(), 0);
    EXPECT_EQ(options.getNum() + options.getDeprecatedPort().getNum(), 2);

    options.getDeprecatedPort().setNum(2);
    options.getDeprecatedPort().setValue(1, true);
    options.setValue(0, true);
    EXPECT_EQ(savedPorts(m_owner), "\"Isosurface\" options setValue 0 1\n");

    ASSERT_TRUE(options.getDeprecatedPort().isItemNew(1));
    m_owner.untouchAllPorts();
    EXPECT_FALSE(options.isNew() || options.isItemNew(0));
    EXPECT_FALSE(options.getDeprecatedPort().isNew() || options.getDeprecatedPort().isItemNew(1));
}

TEST_F(DeprecatedPortTest, VersionChoosesThePort)
{
    options.getDeprecatedPort().setNum(2);
    m_interpreter->setCompatibilityVersion(920);
    ASSERT_EQ(run("options setValue 0 1"), TCL_OK);
    EXPECT_TRUE(options.getValue(0));
    EXPECT_FALSE(options.getDeprecatedPort().getValue(0));
    EXPECT_TRUE(m_message->lines().isEmpty()) << "the current port warns of nothing";

    m_interpreter->setCompatibilityVersion(919);
    ASSERT_EQ(run("options setValue 1 1"), TCL_OK) << m_result;
    EXPECT_TRUE(options.getDeprecatedPort().getValue(1));
    EXPECT_TRUE(options.getDeprecatedPort().isItemNew(1));
    // The new port has one toggle only.
    m_interpreter->setCompatibilityVersion(920);
    EXPECT_EQ(run("options setValue 1 1"), TCL_ERROR);
    EXPECT_EQ(m_result, "\"Isosurface\" port \"options\": index 1 is out of range 0..0");
}

TEST_F(DeprecatedPortTest, WarnsOncePerPortWithTheExactText)
{
    ASSERT_EQ(run("options setValue 0 1"), TCL_OK);
    ASSERT_EQ(run("options setValue 0 0"), TCL_OK);
    ASSERT_EQ(m_message->lines().size(), 1);
    EXPECT_EQ(
        m_message->lines()[0].toStdString(),
        "WARNING: You are using a deprecated port. Please see Section \"Versioning of Script Objects and "
        "backward compatibility\" for compatibility details.\nPort \"options\" from module \"Isosurface\" "
        "has "
        "been modified in the current version.\nPlease see \"Isosurface\" documentation for a recent port "
        "list. ");
    EXPECT_TRUE(options.isWarningShown());
    OptionsPort other(&m_owner, "Other", "other");
    ASSERT_EQ(run("other setValue 0 1"), TCL_OK);
    EXPECT_EQ(m_message->lines().size(), 2);
}

TEST_F(DeprecatedPortTest, RenamedPortSaysWhatReplacedIt)
{
    OptionsPort flags(&m_owner, "Flags", "flags", "oldFlags");
    EXPECT_EQ(
        flags.deprecatedWarningMessage().toStdString(),
        "Port \"oldFlags\" from module \"Isosurface\" has been replaced by port \"flags\" in the current "
        "version.");
    ASSERT_EQ(run("oldFlags setValue 0 1"), TCL_OK) << "old scripts reach the port by its old name";
    EXPECT_TRUE(flags.getDeprecatedPort().getValue(0));
    ASSERT_EQ(m_message->lines().size(), 1);
    EXPECT_TRUE(m_message->lines()[0].contains("replaced by port \"flags\""));
}

TEST_F(DeprecatedPortTest, SilentUnderTestsOrWhenNotAllowedAndSetPinIsIgnored)
{
    setenv("RUNNING_TEST", "", 1);
    ASSERT_EQ(run("options setValue 0 1"), TCL_OK);
    EXPECT_TRUE(options.getDeprecatedPort().getValue(0)) << "commands still reach the old port";
    unsetenv("RUNNING_TEST");
    m_interpreter->setDeprecationWarningAllowed(false);
    ASSERT_EQ(run("options setValue 0 0"), TCL_OK);
    EXPECT_FALSE(options.getDeprecatedPort().getValue(0));
    EXPECT_TRUE(m_message->lines().isEmpty());
    EXPECT_FALSE(options.isWarningShown());
    // The warning was not used up: it comes when allowed again.
    m_interpreter->setDeprecationWarningAllowed(true);
    ASSERT_EQ(run("options getValue 0"), TCL_OK);
    EXPECT_EQ(m_message->lines().size(), 1);

    options.getDeprecatedPort().untouch();
    EXPECT_EQ(run("options setPin 1"), TCL_OK);
    EXPECT_EQ(m_result, "");
    EXPECT_FALSE(options.getDeprecatedPort().isNew());
    EXPECT_EQ(run("options frobnicate"), TCL_ERROR) << "other verbs are the old port's to judge";
    m_interpreter->setCompatibilityVersion(920);
    EXPECT_EQ(run("options setPin 1"), TCL_ERROR) << "the current port knows no setPin";
}

} // namespace
