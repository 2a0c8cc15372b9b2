// The port panel: every kind of port gets its widget, a change in a widget sets the port as a script
// would (so a saved network has it), the panel follows the ports, hidden ports are left out and
// insensitive ones greyed.
#include "../support/TestHost.h"

#include <viewer/VxPortPanel.h>

#include <vx/VxModule.h>
#include <vx/VxPort3DPointList.h>
#include <vx/VxPortButtonList.h>
#include <vx/VxPortDrawStyle.h>
#include <vx/VxPortFloatSlider.h>
#include <vx/VxPortFloatTextN.h>
#include <vx/VxPortFontSelection.h>
#include <vx/VxPortGeneric.h>
#include <vx/VxPortMultiMenu.h>
#include <vx/VxPortRadioBox.h>
#include <vx/VxPortText.h>
#include <vx/VxPortToggleList.h>

#include <QApplication>
#include <QCheckBox>
#include <QComboBox>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QRadioButton>
#include <QSlider>
#include <QSpinBox>
#include <QTemporaryDir>

using namespace vxtest;

class PanelTestModule : public VxModule
{
    KX_HEADER(PanelTestModule)

public:
    PanelTestModule()
        : portLevel(this, "Level", "level"), portSize(this, "Size", "size", 2),
          portMode(this, "Mode", "mode", 3), portFlags(this, "Flags", "flags", 2),
          portMenu(this, "Menu", "menu", 1), portFormat(this, "Format", "format"),
          portName(this, "Name", "name"), portSecret(this, "Secret", "secret"),
          portStyle(this, "Style", "style"), portAction(this, "Action", "action", 1),
          portFont(this, "Font", "font"), portSeeds(this, "Seeds", "seeds", 1)
    {
        portLevel.setMinMax(0, 10);
        portMode.setLabel(0, "a");
        portMode.setLabel(1, "b");
        portMode.setLabel(2, "c");
        portMenu.setItems(0, {"one", "two"});
        portFormat.insertComboBox(0, {"Auto", "Float"}, 0);
        portFormat.insertIntText(2, 3);
        portSecret.hide();
        portAction.setLabel(0, "Go");
    }
    VxPortFloatSlider portLevel;
    VxPortFloatTextN portSize;
    VxPortRadioBox portMode;
    VxPortToggleList portFlags;
    VxPortMultiMenu portMenu;
    VxPortGeneric portFormat;
    VxPortText portName;
    VxPortText portSecret;
    VxPortDrawStyle portStyle;
    VxPortButtonList portAction;
    VxPortFontSelection portFont;
    VxPort3DPointList portSeeds;
};
KX_SOURCE(PanelTestModule, VxModule)

namespace {

} // namespace

TEST(PortPanel, WidgetsSetThePortsAsScriptsDo)
{
    static int argc = 1;
    static char name[] = "test";
    static char* argv[] = {name, nullptr};
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);
    PanelTestModule::getClassTypeId();
    tcl("remove -all; create PanelTestModule m");
    QStringList commands;
    VxPortPanel panel([&](const QStringList& words) {
        commands << words.join(' ');
        tcl(words.join(' '));
    });
    panel.setObject(VxApplication::instance()->objectPool()->findObject("m"));
    auto labels = [&] {
        QStringList texts;
        for (QLabel* l : panel.findChildren<QLabel*>()) texts << l->text();
        return texts;
    };
    EXPECT_TRUE(labels().contains("Level"));
    EXPECT_FALSE(labels().contains("Secret")) << "hidden ports are left out";

    // Widget to port, through script commands.
    panel.findChildren<QRadioButton*>().at(2)->click();
    EXPECT_EQ(tcl("m mode getValue"), "2");
    panel.findChildren<QCheckBox*>().at(1)->click();
    EXPECT_EQ(tcl("m flags getValue 1"), "1");
    QComboBox* menu = nullptr;
    for (QComboBox* box : panel.findChildren<QComboBox*>())
        if (box->itemText(0) == "one") menu = box;
    ASSERT_TRUE(menu);
    menu->setCurrentIndex(1);
    emit menu->activated(1);
    EXPECT_EQ(tcl("m menu getValue 0"), "1");
    auto edit = [&](int which, const QString& text) {
        QLineEdit* field = panel.findChildren<QLineEdit*>().at(which);
        field->setText(text);
        emit field->editingFinished();
    };
    edit(0, "7.5"); // the slider's text field
    EXPECT_EQ(tcl("m level getValue"), "7.5");
    edit(2, "4"); // the second field of Size
    EXPECT_EQ(tcl("m size getValue 1"), "4");
    EXPECT_EQ(commands.first(), "m mode setValue 2");
    QLineEdit* seedY = panel.findChildren<QLineEdit*>().at(panel.findChildren<QLineEdit*>().size() - 2);
    seedY->setText("-3");
    emit seedY->editingFinished();
    EXPECT_EQ(tcl("m seeds getValue 0"), "0 -3 0");
    for (QPushButton* b : panel.findChildren<QPushButton*>())
        if (b->text() == "Add point") b->click();
    EXPECT_EQ(tcl("m seeds getNum"), "2");
    for (QComboBox* box : panel.findChildren<QComboBox*>())
        if (box->itemText(0) == "lines") emit box->activated(3);
    EXPECT_EQ(tcl("m style getValue"), "3");
    panel.findChildren<QSpinBox*>().at(0)->setValue(14); // the font's size
    EXPECT_EQ(tcl("m font getFontSize"), "14");
    for (QPushButton* b : panel.findChildren<QPushButton*>())
        if (b->text() == "Go") b->click();
    EXPECT_TRUE(commands.contains("m action hit 0") && commands.contains("m fire"))
        << commands.join("; ").toStdString();

    // Port to widget, and greyed when insensitive.
    tcl("m level setValue 2.25; m mode setValue 0");
    static_cast<PanelTestModule*>(VxApplication::instance()->objectPool()->findObject("m"))
        ->portName.setSensitive(false);
    panel.refresh();
    EXPECT_EQ(panel.findChildren<QLineEdit*>().at(0)->text(), "2.25");
    EXPECT_TRUE(panel.findChildren<QRadioButton*>().at(0)->isChecked());
    EXPECT_EQ(panel.findChildren<QSlider*>().at(0)->value(), 225);
    bool greyed = false;
    for (QLineEdit* field : panel.findChildren<QLineEdit*>())
        greyed = greyed ||
                 (!field->isEnabled() && field->parentWidget() && !field->parentWidget()->isEnabled()) ||
                 !field->isEnabledTo(&panel);
    EXPECT_TRUE(greyed);

    // A saved network has what the widgets set.
    QTemporaryDir dir;
    tcl("saveNetwork " + dir.path() + "/n.tcl");
    QFile saved(dir.path() + "/n.tcl");
    ASSERT_TRUE(saved.open(QIODevice::ReadOnly));
    const QString text = QString::fromUtf8(saved.readAll());
    EXPECT_TRUE(text.contains("flags setValue 1 1")) << text;
    EXPECT_TRUE(text.contains("menu setValue 0 1")) << text;
    tcl("remove -all");
}
