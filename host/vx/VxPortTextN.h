#pragma once
#include <vx/VxPort.h>

#include <QVector>

#include <algorithm>
#include <cstring>
#include <limits>

// A row of number fields, each with its own range, label and sensitivity. Values are clamped into
// their field's range; the fields are unbounded until a range is set. Base of VxPortIntTextN and
// VxPortFloatTextN.
template <class T> class VxPortTextN : public VxPort
{
public:
    enum Sensitivity
    {
        NO_SENSITIVITY = 0,
        SENSITIVE = 1
    };

    VxPortTextN(VxObject* owner, const QString& label, const QString& name, int count)
        : VxPort(owner, label, name), m_fields(std::max(count, 0))
    {
    }

    int getNum() const { return m_fields.size(); }
    // Out-of-range indices read 0 and are ignored when written.
    T getValue(int index = 0) const { return valid(index) ? m_fields[index].value : T(0); }
    // Clamps into the field's range (NaN is ignored); touches NEW_VALUE only on a change.
    void setValue(int index, T value)
    {
        if (!valid(index) || value != value) return;
        Field& f = m_fields[index];
        value = std::min(std::max(value, f.min), f.max);
        if (value == f.value) return;
        f.value = value;
        touch(NEW_VALUE);
    }
    // Range of one field; reversed bounds are swapped. Touches NEW_RANGE and re-clamps the value.
    void setMinMax(int index, T min, T max)
    {
        if (!valid(index) || min != min || max != max) return;
        Field& f = m_fields[index];
        takeRange(f.min, f.max, min, max);
        setValue(index, f.value);
    }
    // The same range for every field.
    void setMinMax(T min, T max)
    {
        for (int i = 0; i < m_fields.size(); ++i) setMinMax(i, min, max);
    }
    T getMinValue(int index = 0) const { return valid(index) ? m_fields[index].min : T(0); }
    T getMaxValue(int index = 0) const { return valid(index) ? m_fields[index].max : T(0); }

    using VxPort::getLabel;
    using VxPort::setLabel;
    QString getLabel(int index) const { return valid(index) ? m_fields[index].label : QString(); }
    void setLabel(int index, const QString& label)
    {
        if (!valid(index) || m_fields[index].label == label) return;
        m_fields[index].label = label;
        touch(NEW_ITEMS);
    }
    // A field that is not sensitive is shown greyed out and cannot be edited by the user.
    void setSensitivity(int index, int sensitivity)
    {
        if (!valid(index) || m_fields[index].sensitive == (sensitivity != NO_SENSITIVITY)) return;
        m_fields[index].sensitive = sensitivity != NO_SENSITIVITY;
        touch(NEW_ITEMS);
    }
    int getSensitivity(int index) const
    {
        return valid(index) && m_fields[index].sensitive ? SENSITIVE : NO_SENSITIVITY;
    }

    QStringList verbs() const override
    {
        return QStringList{"setValue",       "getValue", "setMinMax", "getMinValue",
                           "getMaxValue",    "setLabel", "getLabel",  "setSensitivity",
                           "getSensitivity", "getNum",   "setState",  "getState"} +
               VxPort::verbs();
    }

    // Ranges other than the unbounded default, then the values.
    QStringList saveState() const override
    {
        using vxscript::number;
        QStringList lines;
        for (int i = 0; i < m_fields.size(); ++i)
            if (m_fields[i].min != lowest() || m_fields[i].max != highest())
                lines << QString("setMinMax %1 %2 %3")
                             .arg(i)
                             .arg(number(m_fields[i].min), number(m_fields[i].max));
        for (int i = 0; i < m_fields.size(); ++i)
            lines << QString("setValue %1 %2").arg(i).arg(number(m_fields[i].value));
        return lines;
    }

    int parse(Tcl_Interp* interp, int argc, char** argv) override
    {
        using vxscript::number;
        using vxscript::setResult;
        if (argc < 2) return VxPort::parse(interp, argc, argv);
        const char* verb = argv[1];
        auto is = [verb](const char* v) { return !strcmp(verb, v); };
        const int n = m_fields.size();
        int index = 0;
        T v[2];

        if (is("setValue")) {
            // "setValue INDEX VALUE"; a port of one field also takes "setValue VALUE".
            if (argc != 4 && !(argc == 3 && n == 1)) return usage(interp, verb, "INDEX VALUE");
            if (argc == 4 && !vxscript::toIndex(interp, *this, argv[2], n, index)) return TCL_ERROR;
            if (!vxscript::toNumber(interp, *this, argv[argc - 1], v[0])) return TCL_ERROR;
            setValue(index, v[0]);
            return TCL_OK;
        }
        if (is("setMinMax")) {
            // "setMinMax INDEX MIN MAX" for one field, "setMinMax MIN MAX" for all.
            if (argc != 4 && argc != 5) return usage(interp, verb, "[INDEX] MIN MAX");
            if (argc == 5 && !vxscript::toIndex(interp, *this, argv[2], n, index)) return TCL_ERROR;
            if (!vxscript::toNumber(interp, *this, argv[argc - 2], v[0]) ||
                !vxscript::toNumber(interp, *this, argv[argc - 1], v[1]) || !checkMinMax(interp, v[0], v[1]))
                return TCL_ERROR;
            argc == 5 ? setMinMax(index, v[0], v[1]) : setMinMax(v[0], v[1]);
            return TCL_OK;
        }
        if (is("getValue") && argc == 2 && n != 1) return reply(interp, argc, argv, stateText());
        if (is("getValue") || is("getMinValue") || is("getMaxValue") || is("getSensitivity") ||
            (is("getLabel") && argc == 3)) {
            if (!optionalIndex(interp, argc, argv, 3, n, "[INDEX]", index)) return TCL_ERROR;
            const Field& f = m_fields[index];
            if (is("getLabel"))
                setResult(interp, f.label);
            else if (is("getSensitivity"))
                setResult(interp, f.sensitive ? "1" : "0");
            else
                setResult(interp, number(is("getValue") ? f.value : is("getMinValue") ? f.min : f.max));
            return TCL_OK;
        }
        if (is("setLabel"))
            return parseSetLabel(interp, argc, argv, n,
                                 [this](int i, const QString& text) { setLabel(i, text); });
        if (is("setSensitivity"))
            return parseSetFlag(interp, argc, argv, n, [this](int i, bool on) {
                setSensitivity(i, on ? SENSITIVE : NO_SENSITIVITY);
            });
        if (is("getNum")) return reply(interp, argc, argv, QString::number(n));
        if (is("setState"))
            return parseState<T>(
                interp, argc, argv, n, "values, one per field",
                [&](int, const char* word, T& value) {
                    return vxscript::toNumber(interp, *this, word, value);
                },
                [this](int i, T value) { setValue(i, value); });
        if (is("getState")) return reply(interp, argc, argv, stateText());
        return VxPort::parse(interp, argc, argv);
    }

private:
    struct Field
    {
        T value = T(0);
        T min = lowest();
        T max = highest();
        QString label;
        bool sensitive = true;
    };
    static constexpr T lowest() { return std::numeric_limits<T>::lowest(); }
    static constexpr T highest() { return std::numeric_limits<T>::max(); }
    bool valid(int index) const { return index >= 0 && index < m_fields.size(); }
    QString stateText() const
    {
        QStringList values;
        for (const Field& f : m_fields) values << vxscript::number(f.value);
        return values.join(' ');
    }

    QVector<Field> m_fields;
};
