#pragma once
#include <io/VxRawReader.h>

#include <string>
#include <vector>

// A wrong command line: the command ends with exit status 2 and this text after "vxiso: error: ".
struct VxisoUsageError
{
    std::string text;
};

// The subcommands, as bits: each option names those that take it.
enum class VxisoCommand : unsigned
{
    Surface = 1,
    Info = 2,
    Isolines = 4,
    Contours = 8,
};

// Everything the command line says, for every subcommand; what a subcommand does not take keeps
// its default.
struct VxisoOptions
{
    // The input: the words without an option, then (vxisoChooseInput) exactly one of volumeFile,
    // rawFile and fieldName.
    std::vector<std::string> inputs;
    std::string volumeFile, rawFile, fieldName;
    bool blocks = false; // volumeFile is a multi-block description
    bool mesh = false;   // volumeFile is a tetrahedral or hexahedral mesh
    std::string scalars; // the mesh's field to read; empty: the first
    VxRawDescription raw;
    bool haveDims = false, haveType = false;
    bool describesRaw = false; // any of --dims, --type, --spacing, --origin, --offset, --swap-bytes
    int size = 0;
    bool labels = false;

    // The surface.
    double threshold = 0;
    bool haveThreshold = false;
    std::string output, maskFile, picture;
    long long label = 0, maskLabel = 0;
    bool haveLabel = false, haveMaskLabel = false, relaxed = false;
    bool compactify = false, verbose = false, ascii = false, pad = false;
    bool blocky = false;           // per-cell surfaces of a hexahedral mesh's per-cell values
    int downsample[3] = {0, 0, 0}; // 0: not asked for
    long long cores = 0;           // 0: all cores
    long long slabs = 0;           // 0: slabs by the hardware threads
    double view[3] = {0, 0, -1}, up[3] = {0, 1, 0};
    bool haveView = false;

    // The contour lines: an ortho slice (axis 'x', 'y' or 'z'; index -1 for the middle one) or a
    // plane through a point; explicit values or n values spread evenly from min to max.
    char sliceAxis = 0;
    long long sliceIndex = -1;
    bool havePlane = false;
    double planeOrigin[3] = {0, 0, 0}, planeNormal[3] = {0, 0, 0};
    std::vector<double> isoValues;
    bool haveUniform = false;
    double uniformMin = 0, uniformMax = 0;
    long long uniformCount = 0;
    long long resolution = 0; // 0: from --quality
    std::string quality;      // low, medium or high; empty: medium

    // The labels along the lines.
    bool annotate = false, cameraAligned = false, contourClip = false;
    long long every = 0, everyStart = 1;    // 0: every value
    double textScale = 0, textSpacing = -1; // 0 and -1: the module's defaults
    std::string fontName;
    long long fontSize = 0;

    // The annotated contoured slice; -1: the module's own setting.
    std::string colormap;
    int annotationsPath = -1, format = -1;
    long long decimals = -1, tenPower = 0, periodMajor = 0, periodFirst = 0;
    bool haveTenPower = false;
};

// "surface", "info", "isolines", "contours".
const char* vxisoCommandName(VxisoCommand command);

// The options that follow the subcommand, each checked on its own; how they fit together is the
// business of the input (vxisoChooseInput) and of the subcommand. Throws VxisoUsageError.
VxisoOptions vxisoParseOptions(const std::vector<std::string>& args, VxisoCommand command);

// Whether the word asks for the help text (help wins wherever it stands).
bool vxisoAsksForHelp(const std::string& word);

// What --help prints: the usage and the inputs, then every option of the table.
std::string vxisoHelp();
// The names and aliases of every option the help lists.
std::vector<std::string> vxisoOptionNames();
