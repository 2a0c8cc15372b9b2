#include "VxPortPanel.h"

#include <vx/VxApplication.h>
#include <vx/VxConnection.h>
#include <vx/VxObject.h>
#include <vx/VxObjectPool.h>
#include <vx/VxPort3DPointList.h>
#include <vx/VxPortButtonList.h>
#include <vx/VxPortColorList.h>
#include <vx/VxPortDrawStyle.h>
#include <vx/VxPortFloatSlider.h>
#include <vx/VxPortFloatTextN.h>
#include <vx/VxPortFontSelection.h>
#include <vx/VxPortGeneric.h>
#include <vx/VxPortIntSlider.h>
#include <vx/VxPortIntTextN.h>
#include <vx/VxPortMultiMenu.h>
#include <vx/VxPortRadioBox.h>
#include <vx/VxPortText.h>
#include <vx/VxPortToggleList.h>

#include <QCheckBox>
#include <QColorDialog>
#include <QComboBox>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QRadioButton>
#include <QScrollArea>
#include <QSlider>
#include <QSpinBox>
#include <QVBoxLayout>

namespace {

QString number(double v)
{
    return QString::number(v, 'g', 9);
}

// A slider over [min, max] in 1000 steps beside a text field; the port is set when the slider is
// released or the text entered. With drag, each move while dragging is handed to it (the port's
// interactive drag) and the release sets the value.
QWidget* slider(double value, double min, double max, const std::function<void(double)>& set,
                const std::function<void(double)>& drag = nullptr,
                const std::function<void()>& release = nullptr)
{
    auto* row = new QWidget;
    auto* layout = new QHBoxLayout(row);
    layout->setContentsMargins(0, 0, 0, 0);
    auto* bar = new QSlider(Qt::Horizontal);
    bar->setRange(0, 1000);
    const double span = max > min ? max - min : 1;
    bar->setValue(int((value - min) / span * 1000 + 0.5));
    auto* text = new QLineEdit(number(value));
    text->setMaximumWidth(90);
    QObject::connect(bar, &QSlider::sliderMoved, [text, min, span, drag](int v) {
        text->setText(number(min + span * v / 1000));
        if (drag) drag(min + span * v / 1000);
    });
    QObject::connect(bar, &QSlider::sliderReleased, [bar, min, span, set, release] {
        if (release)
            release();
        else
            set(min + span * bar->value() / 1000);
    });
    QObject::connect(text, &QLineEdit::editingFinished, [text, set] {
        bool ok = false;
        const double v = text->text().toDouble(&ok);
        if (ok) set(v);
    });
    layout->addWidget(bar, 1);
    layout->addWidget(text);
    return row;
}

template <class Port> QWidget* fields(Port* port, const std::function<void(int, const QString&)>& set)
{
    auto* row = new QWidget;
    auto* layout = new QHBoxLayout(row);
    layout->setContentsMargins(0, 0, 0, 0);
    for (int i = 0; i < port->getNum(); ++i) {
        if (!port->getLabel(i).isEmpty()) layout->addWidget(new QLabel(port->getLabel(i)));
        auto* text = new QLineEdit(number(port->getValue(i)));
        text->setEnabled(port->getSensitivity(i) != 0);
        QObject::connect(text, &QLineEdit::editingFinished, [text, i, set] { set(i, text->text()); });
        layout->addWidget(text);
    }
    return row;
}

} // namespace

VxPortPanel::VxPortPanel(Run run, QWidget* parent) : QWidget(parent), m_run(std::move(run))
{
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
}

void VxPortPanel::setObject(VxObject* object)
{
    m_object = object;
    refresh();
}

void VxPortPanel::command(VxPort* port, const QStringList& words)
{
    m_run(QStringList{m_object->getName(), port->getName()} + words);
    refresh();
}

QWidget* VxPortPanel::widgetFor(VxPort* port)
{
    auto set = [this, port](const QStringList& words) { command(port, words); };
    if (auto* c = dynamic_cast<VxConnection*>(port)) {
        auto* menu = new QComboBox;
        menu->addItem(tr("(none)"));
        for (VxObject* o : VxApplication::instance()->objectPool()->getObjects()) {
            if (o == m_object) continue;
            for (const KxTypeInfo* type : c->getTypes())
                if (o->isOfType(type)) {
                    menu->addItem(o->getName());
                    break;
                }
        }
        menu->setCurrentText(c->getSource() ? c->getSource()->getName() : tr("(none)"));
        connect(menu, QOverload<int>::of(&QComboBox::activated), [menu, set](int i) {
            set(i == 0 ? QStringList{"disconnect"} : QStringList{"connect", menu->itemText(i)});
        });
        return menu;
    }
    if (auto* s = dynamic_cast<VxPortFloatSlider*>(port)) {
        // A tracking slider follows the drag: the module may show a quick result until the release.
        std::function<void(double)> drag;
        if (s->isTracking())
            drag = [this, port](double v) {
                m_run({m_object->getName(), port->getName(), "drag", number(v)});
            };
        std::function<void()> release;
        if (drag) release = [set] { set({"release"}); };
        return slider(
            s->getValue(), s->getMinValue(), s->getMaxValue(),
            [set](double v) {
                set({"setValue", number(v)});
            },
            drag, release);
    }
    if (auto* s = dynamic_cast<VxPortIntSlider*>(port))
        return slider(s->getValue(), s->getMinValue(), s->getMaxValue(), [set](double v) {
            set({"setValue", QString::number(qRound(v))});
        });
    if (auto* f = dynamic_cast<VxPortFloatTextN*>(port))
        return fields(f, [set](int i, const QString& v) { set({"setValue", QString::number(i), v}); });
    if (auto* f = dynamic_cast<VxPortIntTextN*>(port))
        return fields(f, [set](int i, const QString& v) { set({"setValue", QString::number(i), v}); });
    if (auto* t = dynamic_cast<VxPortText*>(port)) {
        auto* text = new QLineEdit(t->getValue());
        connect(text, &QLineEdit::editingFinished, [text, set] { set({"setValue", text->text()}); });
        return text;
    }
    if (auto* toggles = dynamic_cast<VxPortToggleList*>(port)) {
        auto* row = new QWidget;
        auto* layout = new QHBoxLayout(row);
        layout->setContentsMargins(0, 0, 0, 0);
        for (int i = 0; i < toggles->getNum(); ++i) {
            auto* box = new QCheckBox(toggles->getLabel(i));
            box->setChecked(toggles->getValue(i));
            connect(box, &QCheckBox::clicked, [i, set](bool on) {
                set({"setValue", QString::number(i), on ? "1" : "0"});
            });
            layout->addWidget(box);
        }
        return row;
    }
    if (auto* radio = dynamic_cast<VxPortRadioBox*>(port)) {
        auto* row = new QWidget;
        auto* layout = new QHBoxLayout(row);
        layout->setContentsMargins(0, 0, 0, 0);
        for (int i = 0; i < radio->getNum(); ++i) {
            auto* button = new QRadioButton(radio->getLabel(i));
            button->setChecked(radio->getValue() == i);
            connect(button, &QRadioButton::clicked, [i, set] { set({"setValue", QString::number(i)}); });
            layout->addWidget(button);
        }
        return row;
    }
    if (auto* menus = dynamic_cast<VxPortMultiMenu*>(port)) {
        auto* row = new QWidget;
        auto* layout = new QHBoxLayout(row);
        layout->setContentsMargins(0, 0, 0, 0);
        for (int m = 0; m < menus->getNum(); ++m) {
            auto* menu = new QComboBox;
            menu->addItems(menus->getItems(m));
            menu->setCurrentIndex(menus->getValue(m));
            connect(menu, QOverload<int>::of(&QComboBox::activated), [m, set](int i) {
                set({"setValue", QString::number(m), QString::number(i)});
            });
            layout->addWidget(menu);
        }
        return row;
    }
    if (auto* buttons = dynamic_cast<VxPortButtonList*>(port)) {
        auto* row = new QWidget;
        auto* layout = new QHBoxLayout(row);
        layout->setContentsMargins(0, 0, 0, 0);
        for (int i = 0; i < buttons->getNum(); ++i) {
            auto* button = new QPushButton(buttons->getLabel(i));
            connect(button, &QPushButton::clicked, [this, i, set] {
                set({"hit", QString::number(i)});
                m_run({m_object->getName(), "fire"});
            });
            layout->addWidget(button);
        }
        return row;
    }
    if (auto* generic = dynamic_cast<VxPortGeneric*>(port)) {
        auto* row = new QWidget;
        auto* layout = new QHBoxLayout(row);
        layout->setContentsMargins(0, 0, 0, 0);
        // Ids are the module's own; walk the positions by trying ids in a generous range.
        for (int id = 0, found = 0; found < generic->getNumItems() && id < 256; ++id) {
            if (generic->findItem(id) < 0) continue;
            ++found;
            const QString sid = QString::number(id);
            switch (generic->getKind(id)) {
            case VxPortGeneric::LABEL:
                layout->addWidget(new QLabel(generic->getEntries(id).value(0)));
                break;
            case VxPortGeneric::CHECK_BOX: {
                auto* box = new QCheckBox(generic->getEntries(id).value(0));
                box->setChecked(generic->getValue(id));
                connect(box, &QCheckBox::clicked, [sid, set](bool on) {
                    set({"setValue", sid, on ? "1" : "0"});
                });
                layout->addWidget(box);
                break;
            }
            case VxPortGeneric::COMBO_BOX: {
                auto* menu = new QComboBox;
                menu->addItems(generic->getEntries(id));
                menu->setCurrentIndex(generic->getValue(id));
                connect(menu, QOverload<int>::of(&QComboBox::activated), [sid, set](int i) {
                    set({"setValue", sid, QString::number(i)});
                });
                layout->addWidget(menu);
                break;
            }
            case VxPortGeneric::INT_TEXT: {
                auto* text = new QLineEdit(QString::number(generic->getValue(id)));
                text->setMaximumWidth(60);
                connect(text, &QLineEdit::editingFinished, [text, sid, set] {
                    set({"setValue", sid, text->text()});
                });
                layout->addWidget(text);
                break;
            }
            }
            layout->itemAt(layout->count() - 1)->widget()->setVisible(generic->isItemVisible(id));
        }
        return row;
    }
    if (auto* colors = dynamic_cast<VxPortColorList*>(port)) {
        auto* row = new QWidget;
        auto* layout = new QHBoxLayout(row);
        layout->setContentsMargins(0, 0, 0, 0);
        for (int i = 0; i < colors->getNum(); ++i) {
            KxColor c;
            colors->getColor(c, i);
            auto* button = new QPushButton(colors->getLabel(i));
            const QColor shown = QColor::fromRgbF(double(c.r), double(c.g), double(c.b));
            button->setStyleSheet(QString("background: %1").arg(shown.name()));
            connect(button, &QPushButton::clicked, [i, shown, set] {
                const QColor chosen = QColorDialog::getColor(shown);
                if (chosen.isValid())
                    set({"setColor", QString::number(i), number(chosen.redF()), number(chosen.greenF()),
                         number(chosen.blueF())});
            });
            layout->addWidget(button);
        }
        return row;
    }
    if (auto* font = dynamic_cast<VxPortFontSelection*>(port)) {
        auto* row = new QWidget;
        auto* layout = new QHBoxLayout(row);
        layout->setContentsMargins(0, 0, 0, 0);
        auto* family = new QLineEdit(font->getFontFamily());
        auto* size = new QSpinBox;
        size->setRange(1, 500);
        size->setValue(font->getFontSize());
        auto apply = [family, size, set] {
            set({"setFont", family->text(), QString::number(size->value())});
        };
        connect(family, &QLineEdit::editingFinished, apply);
        connect(size, QOverload<int>::of(&QSpinBox::valueChanged), apply);
        layout->addWidget(family, 1);
        layout->addWidget(size);
        return row;
    }
    if (auto* style = dynamic_cast<VxPortDrawStyle*>(port)) {
        auto* row = new QWidget;
        auto* layout = new QHBoxLayout(row);
        layout->setContentsMargins(0, 0, 0, 0);
        auto* menu = new QComboBox;
        for (int i = 0; i < VxPortDrawStyle::NUM_STYLES; ++i) menu->addItem(VxPortDrawStyle::styleName(i));
        menu->setCurrentIndex(style->getValue());
        connect(menu, QOverload<int>::of(&QComboBox::activated), [menu, set](int i) {
            set({"setValue", menu->itemText(i)});
        });
        layout->addWidget(menu);
        if (style->hasCullingControls()) {
            auto* cull = new QCheckBox(tr("cull back faces"));
            cull->setChecked(style->isCulling());
            connect(cull, &QCheckBox::clicked, [set](bool on) { set({"setCulling", on ? "1" : "0"}); });
            layout->addWidget(cull);
        }
        return row;
    }
    if (auto* points = dynamic_cast<VxPort3DPointList*>(port)) {
        // One row of x, y and z per point, each with its remove button, and a button for one more.
        auto* box = new QWidget;
        auto* rows = new QVBoxLayout(box);
        rows->setContentsMargins(0, 0, 0, 0);
        for (int i = 0; i < points->getNum(); ++i) {
            auto* row = new QWidget;
            auto* layout = new QHBoxLayout(row);
            layout->setContentsMargins(0, 0, 0, 0);
            const SbVec3f p = points->getValue(i);
            QLineEdit* xyz[3];
            for (int c = 0; c < 3; ++c) {
                xyz[c] = new QLineEdit(number(double(p[c])));
                layout->addWidget(xyz[c]);
            }
            for (QLineEdit* field : xyz)
                connect(field, &QLineEdit::editingFinished, [i, x = xyz[0], y = xyz[1], z = xyz[2], set] {
                    set({"setValue", QString::number(i), x->text(), y->text(), z->text()});
                });
            auto* remove = new QPushButton(tr("Remove"));
            connect(remove, &QPushButton::clicked, [i, set] { set({"removePoint", QString::number(i)}); });
            layout->addWidget(remove);
            rows->addWidget(row);
        }
        auto* add = new QPushButton(tr("Add point"));
        connect(add, &QPushButton::clicked, [set] { set({"appendPoint", "0", "0", "0"}); });
        rows->addWidget(add);
        return box;
    }
    return new QLabel(tr("(set by scripts: %1)").arg(port->getName()));
}

void VxPortPanel::refresh()
{
    // The old widgets may be in the middle of the signal that led here: they go later, but leave
    // the panel now.
    if (m_body) {
        m_body->hide();
        m_body->setParent(nullptr);
        m_body->deleteLater();
    }
    m_body = new QWidget(this);
    auto* form = new QFormLayout(m_body);
    if (m_object && VxApplication::instance()->objectPool()->contains(m_object)) {
        form->addRow(new QLabel("<b>" + m_object->getName() + "</b>"));
        for (VxPort* port : m_object->getAllPorts()) {
            if (!port->isVisible()) continue;
            QWidget* w = widgetFor(port);
            w->setEnabled(port->isSensitive());
            w->setToolTip(port->getToolTip());
            form->addRow(port->getLabel(), w);
        }
    } else {
        m_object = nullptr;
    }
    layout()->addWidget(m_body);
}
