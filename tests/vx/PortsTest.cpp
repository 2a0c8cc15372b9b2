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

// Runs "PORT VERB ..." lines through an object's parse(), as the interpreter does.
class PortsTest : public ::testing::Test
{
protected:
    PortsTest() : m_interp(Tcl_CreateInterp()) {}
    ~PortsTest() override { Tcl_DeleteInterp(m_interp); }

    // The Tcl code; the result in m_result.
    int run(VxObject& o, const std::string& line)
    {
        int argc = 0;
        const char** argv = nullptr;
        if (Tcl_SplitList(nullptr, (o.getName().toStdString() + " " + line).c_str(), &argc, &argv) != TCL_OK)
            return -1;
        Tcl_ResetResult(m_interp);
        const int code = o.parse(m_interp, argc, const_cast<char**>(argv));
        Tcl_Free(reinterpret_cast<char*>(argv));
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
    // The line fails with the text, led by the names of the owner and of the line's port.
    void expectError(const std::string& line, const std::string& text, VxObject* o = nullptr)
    {
        VxObject& target = o ? *o : owner;
        EXPECT_EQ(run(target, line), TCL_ERROR) << line;
        EXPECT_EQ(m_result, "\"" + target.getName().toStdString() + "\" port \"" +
                                line.substr(0, line.find(' ')) + "\": " + text);
    }

    Tcl_Interp* m_interp;
    std::string m_result;
    PortOwner owner{"obj"};
};

// Every error text of the verbs once: the shared parsing (numbers, indices, usage, ranges, counts)
// on one port, then what each port says of its own. A failed command changes nothing.
TEST_F(PortsTest, VerbErrorsAreExactAndChangeNothing)
{
    VxPortFloatSlider slider(&owner, "Threshold", "threshold");
    slider.setMinMax(-10.f, 255.f);
    slider.setValue(80.5f);
    VxPortIntSlider cores(&owner, "Cores", "cores");
    VxPortToggleList toggles(&owner, "Options", "options", 2), none(&owner, "None", "none", 0);
    VxPortMultiMenu menus(&owner, "Path", "path", 2);
    menus.setItems(0, {"a", "b", "c"});
    VxPortColorList colors(&owner, "Colors", "colors", 2);
    VxPortGeneric generic(&owner, "Format", "format");
    generic.insertComboBox(0, {"Auto", "Float", "Integer"}, 0);
    generic.insertLabel(1, "decimals");
    generic.insertIntText(2, 3);
    VxPortIntTextN fields(&owner, "Average", "resolution", 3);
    VxPortColormap colormap(&owner, "Colormap", "colormap");
    VxPortFontSelection font(&owner, "Font", "font");
    VxPortDrawStyle style(&owner, "Draw Style", "drawStyle");
    VxPort3DPointList points(&owner, "Points", "points");
    const std::pair<const char*, const char*> cases[] = {
        {"threshold setValue", "usage: threshold setValue VALUE"},
        {"threshold getValue 3", "usage: threshold getValue"},
        {"threshold setValue inf5", "\"inf5\" is not a number"},
        {"threshold setValue nan", "\"nan\" is not a number (NaN)"},
        {"threshold setMinMax 5 1", "the minimum 5 is greater than the maximum 1"},
        {"cores setValue 2.5", "\"2.5\" is not an integer"},
        {"options setValue 0 maybe", "\"maybe\" is not a boolean"},
        {"options setValue -1 1", "index -1 is out of range 0..1"},
        {"none getValue", "index 0 is out of range (the port has no items)"},
        {"options setNum -1", "the count -1 is negative"},
        {"colormap connect nothing", "cannot connect: there is no object \"nothing\""},
        // The ports' own.
        {"threshold setIncrement -1", "the increment -1 is negative or infinite"},
        {"threshold setFormat %d",
         "\"%d\" is not a format for one floating-point number, such as \"%g\" or \"%.2f\""},
        {"path setValue 3", "index 3 is out of range 0..2"},
        {"colors setState {1 0 0} {0 1 0} {0 0 1}", "setState needs 2 colours {R G B}, one per item, not 3"},
        {"colors setState {1 0 0} {0 1}", "colour 1 \"0 1\" is not three numbers R G B"},
        {"format setValue 0 3", "index 3 is out of range 0..2 of item 0"},
        {"format getValue 1", "there is no item 1 with a value; items: 0, 2"},
        {"resolution setState 1 2", "setState needs 3 values, one per field, not 2"},
        {"font setFont Helvetica 0", "the font size 0 is not positive"},
        {"font setFont Helvetica 12 120", "the font weight 120 is out of range 0..99"},
        {"drawStyle setCulling 1", "this module offers no back-face culling"},
        {"points appendPoint {1 2}", "\"1 2\" is not a point X Y Z"},
    };
    for (const auto& c : cases) expectError(c.first, c.second);
    const std::string unknown = "\"obj\" port \"threshold\": unknown verb \"frobnicate\"; verbs: setValue, ";
    EXPECT_EQ(run("threshold frobnicate"), TCL_ERROR);
    EXPECT_EQ(m_result.substr(0, unknown.size()), unknown);
    EXPECT_EQ(get("threshold getState"), "-10 255 80.5");
    // Every word is read before any is set.
    ok("colors setState {0 0 1} {0 1 0}");
    EXPECT_NE(run("colors setState {1 1 1} {1 x 1}"), TCL_OK);
    EXPECT_EQ(get("colors getState"), "{0 0 1} {0 1 0}");
}

TEST_F(PortsTest, SlidersClampAndFlagOnlyRealChanges)
{
    VxPortFloatSlider s(&owner, "Threshold", "threshold");
    s.setAliasName("level");
    s.setMinMax(0.f, 255.f);
    s.untouch();
    ok("level setValue 300");
    EXPECT_EQ(s.getFlags(), VxPort::NEW_VALUE);
    s.untouch();
    // The same value or range again is no change; NaN is refused.
    s.setValue(255.f), s.setValue(NAN), s.setMinMax(0.f, 255.f);
    EXPECT_FALSE(s.isNew());
    // A narrower range pulls the value in and says so; reversed bounds are swapped.
    s.setMinMax(0.f, 100.f);
    EXPECT_EQ(s.getFlags(), VxPort::NEW_RANGE | VxPort::NEW_VALUE);
    s.setMinMax(50.f, 10.f);
    EXPECT_EQ(get("threshold getState"), "10 50 50");
    // Formats go to printf: only a single floating-point conversion is taken.
    for (const char* bad : {"{%g %s}", "{%f %f}", "%.2"})
        EXPECT_NE(run(std::string("threshold setFormat ") + bad), TCL_OK);
    ok("threshold setFormat {%.2f %%}");
    EXPECT_EQ(s.formatValue(0.5f).toStdString(), "0.50 %");

    VxPortIntSlider i(&owner, "Number Of Cores", "numberOfCores");
    ok("numberOfCores setState 1 8 8");
    i.untouch();
    i.setMinMax(4, 1);
    EXPECT_EQ(i.getFlags(), VxPort::NEW_RANGE | VxPort::NEW_VALUE);
    ok("numberOfCores setValue -3");
    EXPECT_EQ(get("numberOfCores getState"), "1 4 1");
}

TEST_F(PortsTest, ListsKeepPerItemFlagsAndPullInTheirSelection)
{
    VxPortToggleList t(&owner, "Options", "options", 2);
    t.setValue(0, true);
    t.untouch();
    ok("options setValue 1 1");
    EXPECT_FALSE(t.isItemNew(0));
    EXPECT_EQ(get("options isItemNew 1"), "1");
    t.untouch();
    EXPECT_FALSE(t.isItemNew(1) || t.isNew());
    // Unchanged values are no news; a single value addresses the first toggle.
    ok("options setValue 1 on");
    EXPECT_FALSE(t.isNew());
    ok("options setValue 0");
    EXPECT_TRUE(t.isItemNew(0));
    t.setNum(3);
    EXPECT_FALSE(t.getValue(2) || t.getValue(7));

    VxPortRadioBox r(&owner, "Spacing", "spacing", 4);
    r.setIndex(3);
    r.setValue(5);
    EXPECT_EQ(r.getIndex(), 3) << "an index past the buttons is refused";
    r.untouch();
    r.setNum(2);
    EXPECT_EQ(r.getIndex(), 1);
    EXPECT_EQ(r.getFlags(), VxPort::NEW_VALUE | VxPort::NEW_ITEMS);

    VxPortMultiMenu m(&owner, "Annotations Path", "annotationsPath", 2);
    m.setItems(0, {"tangential path", "horizontal path", "vertical path"});
    EXPECT_EQ(m.getValue(1), -1) << "a menu without items selects nothing";
    ok("annotationsPath setValue 2");
    EXPECT_EQ(get("annotationsPath getItems 0"), "{tangential path} {horizontal path} {vertical path}");
    m.setItems(0, {"a", "b"});
    EXPECT_EQ(m.getValue(0), 0) << "a selection that is gone falls back to the first item";
}

TEST_F(PortsTest, ButtonsStayHitUntilRunOrWhileSnapped)
{
    VxPortDoIt doIt(&owner, "Action", "doIt");
    VxPortButtonList buffer(&owner, "Buffer", "buffer", 4);
    EXPECT_EQ(doIt.getValue(), -1);
    // Pressing again is always news, even when the button is still down.
    const int touches = owner.touches;
    doIt.hit();
    doIt.hit();
    EXPECT_EQ(owner.touches, touches + 2);

    ok("buffer snap 2 1");
    for (int run = 0; run < 3; ++run, buffer.untouch()) EXPECT_TRUE(buffer.wasHit(2) && !buffer.wasHit(1));
    ok("buffer snap 2 0");
    ok("buffer hit 3");
    EXPECT_EQ(get("buffer wasHit 3"), "1");
    EXPECT_FALSE(buffer.wasHit(2));
    EXPECT_TRUE(doIt.saveState().isEmpty() && buffer.saveState().isEmpty());
}

TEST_F(PortsTest, FieldsColoursFontsAndStylesTakeTheirOwnValues)
{
    VxPortFloatTextN values(&owner, "Values", "uniform", 2);
    values.setValue(0, -1e30f); // a field without a range takes any number
    values.setValue(1, NAN);    // refused
    EXPECT_EQ(get("uniform getValue"), "-1e+30 0");

    VxPortColorList colors(&owner, "Annotations Colors", "annotationsColors", 1);
    ok("annotationsColors setColor 0 {1.5 0.25 -2}");
    EXPECT_EQ(get("annotationsColors getColor 0"), "1 0.25 0");

    VxPortFontSelection font(&owner, "Font", "font");
    QFont qfont("Helvetica", 12, QFont::Bold, true);
    font.setFont(&qfont);
    font.setFont(nullptr);
    EXPECT_EQ(font.getFontDescription().toStdString(), "Helvetica:Bold Italic");

    VxPortDrawStyle style(&owner, "Draw Style", "drawStyle");
    ok("drawStyle setValue points");
    EXPECT_EQ(style.getValue(), VxPortDrawStyle::POINTS);

    VxPort3DPointList points(&owner, "Points", "points");
    for (const char* line :
         {"appendPoint 1 2 3", "appendPoint {4 5 6}", "setValue 1 -1 0 1", "removePoint 0"})
        ok(std::string("points ") + line);
    EXPECT_EQ(get("points getState"), "{-1 0 1}");
}

TEST_F(PortsTest, ColormapPortUsesDefaultsUntilConnected)
{
    VxPortColormap port(&owner, "Colormap", "colormap");
    port.setDefaultColor(SbColor(1.f, 0.8f, 0.4f));
    port.setDefaultAlpha(0.5f);
    EXPECT_EQ(port.getPackedColor(0.f), 0xffcc6680u);
    port.enableAlpha(false);
    EXPECT_EQ(port.getPackedColor(0.f), 0xffcc66ffu);
    ok("colormap setDefaultColor 2 -1 0.5");
    EXPECT_EQ(get("colormap getDefaultColor"), "1 0 0.5") << "components are clamped";

    VxObjectPool* pool = VxApplication::instance()->objectPool();
    auto* map = new VxColormap;
    map->setLabel("ramp");
    ASSERT_TRUE(pool->addObject(map, false));
    map->setRange(100.f, 200.f);
    map->setSamples({{0.f, 0.f, 0.f, 0.f}, {1.f, 0.5f, 0.f, 1.f}});
    ok("colormap connect ramp");
    EXPECT_EQ(port.getPackedColor(1e9f), 0xff8000ffu);
    EXPECT_EQ(get("colormap getColor 175"), "0.75 0.375 0");
    // A change of the map reaches its readers.
    port.untouch();
    map->setRange(0.f, 1.f);
    EXPECT_TRUE(port.isNew(VxPort::NEW_DATA));
    pool->removeAll();

    // The map itself: samples interpolated over its range, components clamped to [0, 1].
    VxColormap ramp;
    EXPECT_EQ(ramp.getRGBA(0.5f).r, 0.5f) << "a new map is a grey ramp over [0, 1]";
    ramp.setSamples({{1.f, 0.f, 0.f, 1.f}, {0.f, 1.f, 0.f, 1.f}, {0.f, 0.f, 2.f, -1.f}});
    ramp.setRange(10.f, -10.f);
    EXPECT_EQ(ramp.getRGBA(5.f).b, 0.5f);
    EXPECT_EQ(ramp.getRGBA(10.f).a, 0.f);
    EXPECT_EQ(ramp.getRGBA(NAN).r, 1.f);
    ramp.setSamples({});
    EXPECT_EQ(ramp.getNumSamples(), 3);
    EXPECT_EQ(run(ramp, "setSamples {0 0 0 1} {1 1 x 1}"), TCL_ERROR);
    EXPECT_EQ(m_result, "\"Colormap\": setSamples: sample 1 \"1 1 x 1\" is not four numbers R G B A");
}

TEST_F(PortsTest, GenericPortItemsByID)
{
    VxPortGeneric g(&owner, "Annotations Format", "format");
    g.insertComboBox(0, {"Auto", "Float", "Integer"}, 0);
    g.insertLabel(1, "Number of decimals");
    g.insertIntText(2, 3, 4);
    g.insertCheckBox(5, "contour clip", 0);
    g.setMinMax(2, 0, 10);
    g.setValue(5, 7);
    g.setValue(2, 99);
    g.setValue(0, 3);
    EXPECT_EQ(get("format getState"), "0 10 1") << "check boxes hold 0 or 1, texts their range";
    g.setVisible(5, false);
    ok("format setItemVisible 5 1");
    EXPECT_TRUE(g.isItemVisible(5));
    // Counted reasons to hide nest and show() lifts none of them; the port's own switch (what
    // modules set on every update) is a flag, not a count.
    g.hideMaskIncrease(), g.hideMaskIncrease(), g.show(), g.hideMaskDecrease();
    EXPECT_FALSE(g.isVisible());
    g.hideMaskDecrease(), g.hide(), g.hide();
    EXPECT_EQ(g.getHideMask(), 1);
    g.setVisible(true);
    EXPECT_TRUE(g.isVisible());
    g.insertComboBox(0, {"One"}, 4);
    EXPECT_EQ(g.findItem(0), 0) << "inserting an existing id replaces the item in place";
    EXPECT_EQ(g.getValue(0), 0);
}

TEST_F(PortsTest, RangeSliderTakesTheDataRange)
{
    PortOwner module("module");
    VxConnection data(&module, "Data", "data");
    VxPortRangeTplSlider<VxPortFloatSlider> threshold(&module, "Threshold", "threshold",
                                                      new VxRangeProviderSpatialData(&module));
    threshold.setMinMax(0.f, 1.f);
    KxHandle<VxUniformScalarField3> field(new VxUniformScalarField3(KxDim3l(4, 1, 1), KxPrimType::INT16));
    int16_t* v = static_cast<int16_t*>(field->lattice().dataPtr());
    v[0] = 10, v[1] = -7, v[2] = 50, v[3] = 30000;
    field->setUndefinedValue(30000);
    ASSERT_TRUE(data.connect(field.get()));
    EXPECT_TRUE(threshold.getRangeProvider()->isDiscrete());

    // A value nobody chose moves to the middle of the data's range (undefined values left out).
    threshold.untouch();
    threshold.getRangeProvider()->reset();
    EXPECT_EQ(get(module, "threshold getState"), "-7 50 21.5");
    // A value a script chose stays, and the range widens to hold it.
    for (const char* line : {"threshold setMinMax 0 100", "threshold setValue 80", "threshold resetRange"})
        ASSERT_EQ(run(module, line), TCL_OK) << line;
    EXPECT_EQ(get(module, "threshold getState"), "-7 80 80");
    // After the module ran, the value is no longer a fresh choice.
    threshold.untouch();
    threshold.reset();
    EXPECT_EQ(threshold.getValue(), 21.5f);
    data.disconnect();
    expectError("threshold resetRange", "there is no data to take a range from", &module);
}

// A factory of ports of kind P named "p", with the extra constructor arguments.
template <class P, class... Extra> std::function<VxPort*(VxObject&)> make(Extra... extra)
{
    return [=](VxObject& o) { return new P(&o, "L", "p", extra...); };
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
        void (*prepare)(VxPort&) = nullptr; // the items a module sets up
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
        {make<VxPortMultiMenu>(2),
         {"setValue 1 2"},
         {"getState"},
         [](VxPort& p) {
             static_cast<VxPortMultiMenu&>(p).setItems(1, {"a", "b", "c"});
         }},
        {make<VxPortColormap>(),
         {"connect savedMap", "setDefaultColor 0.2 0.4 0.6", "setDefaultAlpha 0.25"},
         {"getState", "getSource"}},
        {make<VxPortColorList>(2), {"setColor 1 0.1 0.2 0.3"}},
        {make<VxPortFontSelection>(), {"setFont {DejaVu Sans} 14 75 1", "setFontColor 0 1 0"}},
        {make<VxPortGeneric>(),
         {"setValue 0 1", "setValue 2 42", "setValue 3 2"},
         {"getState"},
         [](VxPort& p) {
             auto& g = static_cast<VxPortGeneric&>(p);
             g.insertCheckBox(0, "check"), g.insertLabel(1, "label"), g.insertIntText(2, 0);
             g.insertComboBox(3, {"x", "y", "z"}, 0);
         }},
        {make<VxPortText>(), {"setValue {10 20 \"x {y}\" $z [w]}"}},
        {make<VxPortDrawStyle>(),
         {"setValue points", "setCulling 1"},
         {"getState"},
         [](VxPort& p) { static_cast<VxPortDrawStyle&>(p).cullingControls(); }},
        {make<VxPort3DPointList>(), {"appendPoint 1 2 3"}},
        {make<VxPort3DPointList>(1), {"appendPoint 1 2 3", "appendPoint -0.1 1e-7 3e9"}},
        {make<VxPort3DPointList>(2), {"setNum 0"}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.setup.back());
        PortOwner saved("saved"), restored("restored"), fresh("fresh");
        std::unique_ptr<VxPort> a(c.make(saved)), b(c.make(restored)), f(c.make(fresh));
        for (VxPort* p : {a.get(), b.get(), f.get()})
            if (c.prepare) c.prepare(*p);
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

// The old port is hidden, unlisted and unsaved, reached by old scripts only, and untouched with
// the new one; setPin is its only verb the substitute swallows.
TEST_F(DeprecatedPortTest, VersionChoosesThePortAndOnlyTheNewOneIsListed)
{
    EXPECT_EQ(m_owner.getAllPorts(), QList<VxPort*>{&options});
    EXPECT_GT(options.getDeprecatedPort().getHideMask(), 0);
    options.getDeprecatedPort().setNum(2);
    ASSERT_EQ(run("options setValue 1 1"), TCL_OK) << m_result;
    EXPECT_TRUE(options.getDeprecatedPort().isItemNew(1));
    options.setValue(0, true);
    EXPECT_EQ(savedPorts(m_owner), "\"Isosurface\" options setValue 0 1\n");
    m_owner.untouchAllPorts();
    EXPECT_FALSE(options.isNew() || options.getDeprecatedPort().isNew());
    EXPECT_EQ(run("options setPin 1"), TCL_OK);
    EXPECT_FALSE(options.getDeprecatedPort().isNew());
    EXPECT_EQ(run("options frobnicate"), TCL_ERROR) << "other verbs are the old port's to judge";

    // The current port has one toggle only, and warns of nothing.
    m_interpreter->setCompatibilityVersion(920);
    m_message->clearRecords();
    EXPECT_EQ(run("options setValue 1 1"), TCL_ERROR);
    EXPECT_EQ(m_result, "\"Isosurface\" port \"options\": index 1 is out of range 0..0");
    ASSERT_EQ(run("options setValue 0 0"), TCL_OK);
    EXPECT_FALSE(options.getValue(0));
    EXPECT_EQ(run("options setPin 1"), TCL_ERROR) << "the current port knows no setPin";
    EXPECT_TRUE(m_message->lines().isEmpty());
}

// Silent under tests or when not allowed, without using the warning up; then once per port.
TEST_F(DeprecatedPortTest, WarnsOncePerPortWithTheExactText)
{
    setenv("RUNNING_TEST", "", 1);
    ASSERT_EQ(run("options setValue 0 1"), TCL_OK);
    EXPECT_TRUE(options.getDeprecatedPort().getValue(0)) << "commands still reach the old port";
    unsetenv("RUNNING_TEST");
    m_interpreter->setDeprecationWarningAllowed(false);
    ASSERT_EQ(run("options setValue 0 0"), TCL_OK);
    EXPECT_TRUE(m_message->lines().isEmpty());
    m_interpreter->setDeprecationWarningAllowed(true);
    ASSERT_EQ(run("options setValue 0 1"), TCL_OK);
    ASSERT_EQ(run("options getValue 0"), TCL_OK);
    ASSERT_EQ(m_message->lines().size(), 1);
    EXPECT_EQ(
        m_message->lines()[0].toStdString(),
        "WARNING: You are using a deprecated port. Please see Section \"Versioning of Script Objects and "
        "backward compatibility\" for compatibility details.\nPort \"options\" from module \"Isosurface\" "
        "has been modified in the current version.\nPlease see \"Isosurface\" documentation for a recent "
        "port list. ");
    // A renamed port answers to its old name and says what replaced it.
    OptionsPort flags(&m_owner, "Flags", "flags", "oldFlags");
    ASSERT_EQ(run("oldFlags setValue 0 1"), TCL_OK);
    EXPECT_TRUE(flags.getDeprecatedPort().getValue(0));
    ASSERT_EQ(m_message->lines().size(), 2);
    EXPECT_TRUE(m_message->lines()[1].contains("Port \"oldFlags\" from module \"Isosurface\" has been "
                                               "replaced by port \"flags\" in the current version."));
}

} // namespace
