#include <kx/KxPrimType.h>

#include <cstring>

std::size_t KxPrimType::size() const
{
    switch (m_type) {
    case UINT8:
    case INT8:
        return 1;
    case UINT16:
    case INT16:
        return 2;
    case UINT32:
    case INT32:
    case FLOAT:
        return 4;
    case DOUBLE:
        return 8;
    default:
        return 0;
    }
}

const char* KxPrimType::name() const
{
    switch (m_type) {
    case UINT8:
        return "uint8";
    case INT8:
        return "int8";
    case UINT16:
        return "uint16";
    case INT16:
        return "int16";
    case UINT32:
        return "uint32";
    case INT32:
        return "int32";
    case FLOAT:
        return "float32";
    case DOUBLE:
        return "float64";
    default:
        return "unknown";
    }
}

KxPrimType KxPrimType::fromName(const char* name)
{
    struct Alias
    {
        const char* name;
        Type type;
    };
    static const Alias aliases[] = {
        {"uint8", UINT8},   {"uchar", UINT8},   {"int8", INT8},      {"char", INT8},
        {"uint16", UINT16}, {"ushort", UINT16}, {"int16", INT16},    {"short", INT16},
        {"uint32", UINT32}, {"uint", UINT32},   {"int32", INT32},    {"int", INT32},
        {"float32", FLOAT}, {"float", FLOAT},   {"float64", DOUBLE}, {"double", DOUBLE},
    };
    if (!name) return UNKNOWN;
    for (const Alias& a : aliases)
        if (std::strcmp(a.name, name) == 0) return a.type;
    return UNKNOWN;
}
