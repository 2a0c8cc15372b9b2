#pragma once
#include "VxisoOptions.h"

// One option of the command line, declared once: the parser reads the command line by it and the
// help lists it.
struct VxisoOption
{
    // How the values are read. Help is answered before any parsing (it wins wherever it stands);
    // Gone is an option that no longer exists and says what took its place.
    enum class Kind
    {
        Flag,
        Text,
        Number,    // finite
        AnyNumber, // NaN and infinities too
        Integer,
        Help,
        Gone,
    };
    // One value as read: its text, and its number for the numeric kinds.
    struct Value
    {
        std::string text;
        double number = 0;
        long long integer = 0;
    };
    // Keeps value i of the option (0 for a flag); throws VxisoUsageError when it does not fit. Each
    // value is kept as soon as it is read, so that the first wrong one is the one named.
    using Store = void (*)(VxisoOptions& o, int i, const Value& v);

    const char* name;
    const char* alias;  // or nullptr
    const char* values; // the values' names for the help, one word each (so also their count)
    Kind kind;
    unsigned commands; // VxisoCommand bits: the subcommands that take it
    const char* help;  // one line, wrapped by the help; for Gone the error
    Store store;
};

// Every option, in the order the help lists them.
const std::vector<VxisoOption>& vxisoOptionTable();
