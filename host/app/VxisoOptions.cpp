#include "VxisoOptions.h"

#include "VxisoOptionTable.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <sstream>

namespace {

using Kind = VxisoOption::Kind;
using Value = VxisoOption::Value;

const char* kHead =
    "usage: vxiso surface INPUT -t VALUE -o OUTPUT [options]\n"
    "       vxiso surface INPUT --labels [--label N] -o OUTPUT [options]\n"
    "       vxiso isolines INPUT (--slice AXIS [INDEX] | --plane OX OY OZ NX NY NZ)\n"
    "                      (--values V... | --uniform MIN MAX N) -o OUTPUT [options]\n"
    "       vxiso contours INPUT (--slice AXIS [INDEX] | --plane OX OY OZ NX NY NZ)\n"
    "                      (--values V... | --uniform MIN MAX N) (-o OUTPUT | --png PICTURE) [options]\n"
    "       vxiso info INPUT [--labels]\n"
    "\n"
    "surface extracts the isosurface where the field equals VALUE and writes it as a mesh; the\n"
    "output's extension picks the format: .ply, .stl, .off, .iv, .obj or .vtk. It runs the\n"
    "isosurface module of the vxiso package, as a vxhost script would (see the README).\n"
    "isolines draws the contour lines of the field on a slice and writes them as VTK polydata (.vtk,\n"
    "the iso value of each line as cell data \"value\"), as an Open Inventor scene (.iv) or as an SVG\n"
    "drawing of the slice with a legend (.svg); it runs the package's isoline module.\n"
    "contours draws the slice colour-mapped, with contour lines and their values on it, as an Open\n"
    "Inventor scene (.iv), an SVG drawing (.svg) or a picture (--png).\n"
    "info prints the dimensions, type, spacing, origin, value range and undefined value of INPUT.\n"
    "\n"
    "INPUT is one of:\n"
    "  FILE   a volume file, by its extension:\n"
    "      .nii, .nii.gz, .hdr, .img   NIfTI-1 or NIfTI-2 (-t compares with the values as stored)\n"
    "      .nrrd, .nhdr                NRRD (raw, gzip or ascii encoding)\n"
    "      .mha, .mhd                  MetaImage\n"
    "      .vtk                        VTK legacy structured points, rectilinear or structured grid\n"
    "      .vxblocks                   a multi-block field: one volume file per block\n"
    "      .vtu, .msh, .vtk            a tetrahedral or hexahedral mesh with a field (--scalars NAME)\n"
    "  --raw FILE --dims NX NY NZ --type TYPE   a headerless volume\n"
    "  --field NAME --size N                    a built-in float field on [-1,1]^3\n";

const char* kFoot = "The package libvxiso.so is loaded from this program's folder or from the folders of\n"
                    "VXHOST_PACKAGE_PATH (colon-separated).\n";

// The help's lines are at most this long.
constexpr std::size_t kHelpWidth = 100;

// The first of the commands, by name.
const char* commandName(unsigned commands)
{
    return vxisoCommandName(VxisoCommand(commands & -commands));
}

// All of the commands, by name: "surface, info and isolines".
std::string commandNames(unsigned commands)
{
    std::vector<std::string> names;
    for (unsigned bit = 1; bit <= commands; bit <<= 1)
        if (commands & bit) names.push_back(commandName(bit));
    std::string text;
    for (std::size_t i = 0; i < names.size(); ++i)
        text += (i == 0 ? "" : i + 1 == names.size() ? " and " : ", ") + names[i];
    return text;
}

// The value names of an option: "NAME" is one value, "[NAME]" an optional one and "NAME..." one or
// more; optional and repeated values come last.
std::vector<std::string> valueNames(const VxisoOption& option)
{
    std::istringstream words(option.values);
    std::vector<std::string> names;
    for (std::string word; words >> word;) names.push_back(word);
    return names;
}

bool isOptional(const std::string& name)
{
    return name.front() == '[';
}

bool isRepeated(const std::string& name)
{
    return name.size() > 3 && name.compare(name.size() - 3, 3, "...") == 0;
}

const VxisoOption* find(const std::string& word)
{
    for (const VxisoOption& option : vxisoOptionTable())
        if (word == option.name || (option.alias && word == option.alias)) return &option;
    return nullptr;
}

bool isNumber(const std::string& text)
{
    char* end = nullptr;
    std::strtod(text.c_str(), &end);
    return !text.empty() && *end == '\0';
}

// Finite unless any: an undefined value may be NaN or an infinity.
double number(const std::string& option, const std::string& text, bool any)
{
    char* end = nullptr;
    const double v = std::strtod(text.c_str(), &end);
    if (text.empty() || *end != '\0') throw VxisoUsageError{option + " expects a number, not '" + text + "'"};
    if (!any && !std::isfinite(v))
        throw VxisoUsageError{option + " must be a finite number, not '" + text + "'"};
    return v;
}

long long integer(const std::string& option, const std::string& text)
{
    char* end = nullptr;
    errno = 0;
    const long long v = std::strtoll(text.c_str(), &end, 10);
    if (text.empty() || *end != '\0' || errno == ERANGE)
        throw VxisoUsageError{option + " expects an integer, not '" + text + "'"};
    return v;
}

Value read(const VxisoOption& option, const std::string& typed, const std::string& text)
{
    Value v;
    v.text = text;
    if (option.kind == Kind::Number || option.kind == Kind::AnyNumber)
        v.number = number(typed, text, option.kind == Kind::AnyNumber);
    else if (option.kind == Kind::Integer)
        v.integer = integer(typed, text);
    return v;
}

// Reads the option's values from words[next...]; returns the position after them. Messages name
// the option as it was typed.
std::size_t take(const VxisoOption& option, const std::string& typed, const std::vector<std::string>& words,
                 std::size_t next, VxisoOptions& o)
{
    if (option.kind == Kind::Gone) throw VxisoUsageError{option.help};
    if (option.kind == Kind::Help) return next;
    if (option.kind == Kind::Flag) {
        option.store(o, 0, Value());
        return next;
    }
    int i = 0;
    for (const std::string& name : valueNames(option)) {
        // Only a number is taken as an optional or further value, so that an input file or a
        // negative value's neighbour is never swallowed.
        const bool required = !isOptional(name);
        if (required) {
            if (next >= words.size()) throw VxisoUsageError{"option " + typed + " needs a value"};
            option.store(o, i++, read(option, typed, words[next++]));
        }
        if (!required || isRepeated(name))
            while (next < words.size() && isNumber(words[next]) && !find(words[next])) {
                option.store(o, i++, read(option, typed, words[next++]));
                if (!isRepeated(name)) break;
            }
    }
    return next;
}

// A word that starts like an option but is none; "-" alone and negative numbers are inputs.
bool looksLikeOption(const std::string& word)
{
    return word.size() > 1 && word[0] == '-' && !std::isdigit((unsigned char)word[1]);
}

std::string synopsis(const VxisoOption& option)
{
    std::string text = option.alias ? std::string(option.name) + ", " + option.alias : option.name;
    return *option.values ? text + " " + option.values : text;
}

// The text in lines of at most kHelpWidth, each after indent spaces.
std::string wrapped(const std::string& text, std::size_t indent)
{
    std::istringstream words(text);
    std::string out, line, word;
    while (words >> word) {
        if (!line.empty() && indent + line.size() + 1 + word.size() > kHelpWidth) {
            out += line + "\n" + std::string(indent, ' ');
            line.clear();
        }
        line += (line.empty() ? "" : " ") + word;
    }
    return out + line + "\n";
}

// "options of surface and info:", then one line (or more) for each option those commands take.
std::string section(unsigned commands, std::size_t column)
{
    std::string out = "\noptions of " + commandNames(commands) + ":\n";
    for (const VxisoOption& option : vxisoOptionTable()) {
        if (option.commands != commands || option.kind == Kind::Gone) continue;
        const std::string left = "  " + synopsis(option);
        out += left + std::string(column - left.size(), ' ') + wrapped(option.help, column);
    }
    return out;
}

} // namespace

const char* vxisoCommandName(VxisoCommand command)
{
    switch (command) {
    case VxisoCommand::Surface:
        return "surface";
    case VxisoCommand::Info:
        return "info";
    case VxisoCommand::Isolines:
        return "isolines";
    case VxisoCommand::Contours:
        return "contours";
    }
    return "";
}

VxisoOptions vxisoParseOptions(const std::vector<std::string>& words, VxisoCommand command)
{
    VxisoOptions o;
    for (std::size_t next = 0; next < words.size();) {
        const std::string& word = words[next++];
        const VxisoOption* option = find(word);
        if (!option) {
            if (looksLikeOption(word)) throw VxisoUsageError{"unknown option '" + word + "'"};
            o.inputs.push_back(word);
            continue;
        }
        if (!(option->commands & unsigned(command)))
            throw VxisoUsageError{"option " + word + " belongs to 'vxiso " + commandName(option->commands) +
                                  "', not 'vxiso " + commandName(unsigned(command)) + "'"};
        next = take(*option, word, words, next, o);
    }
    return o;
}

bool vxisoAsksForHelp(const std::string& word)
{
    const VxisoOption* option = find(word);
    return option && option->kind == Kind::Help;
}

std::string vxisoHelp()
{
    std::size_t width = 0;
    for (const VxisoOption& option : vxisoOptionTable()) width = std::max(width, synopsis(option).size());
    std::string out = kHead;
    std::vector<unsigned> done;
    for (const VxisoOption& option : vxisoOptionTable())
        if (std::find(done.begin(), done.end(), option.commands) == done.end()) {
            out += section(option.commands, 2 + width + 2);
            done.push_back(option.commands);
        }
    return out + "\n" + kFoot;
}

std::vector<std::string> vxisoOptionNames()
{
    std::vector<std::string> names;
    for (const VxisoOption& option : vxisoOptionTable()) {
        if (option.kind == Kind::Gone) continue;
        names.push_back(option.name);
        if (option.alias) names.push_back(option.alias);
    }
    return names;
}
