#include <vx/VxPortText.h>

#include <cstring>

void VxPortText::setValue(const QString& text)
{
    if (text == m_value) return;
    m_value = text;
    touch(NEW_VALUE);
}

QStringList VxPortText::verbs() const
{
    return QStringList{"setValue", "getValue", "setState", "getState"} + VxPort::verbs();
}

QStringList VxPortText::saveState() const
{
    return {vxscript::join({"setValue", m_value})};
}

int VxPortText::parse(Tcl_Interp* interp, int argc, char** argv)
{
    if (argc < 2) return VxPort::parse(interp, argc, argv);
    const char* verb = argv[1];
    if (!strcmp(verb, "setValue") || !strcmp(verb, "setState")) {
        if (argc < 3) return usage(interp, verb, "TEXT");
        QStringList words;
        for (int i = 2; i < argc; ++i) words << QString::fromUtf8(argv[i]);
        setValue(words.join(' '));
        return TCL_OK;
    }
    if (!strcmp(verb, "getValue") || !strcmp(verb, "getState")) return reply(interp, argc, argv, m_value);
    return VxPort::parse(interp, argc, argv);
}
