// vxiso: the one-line command for the everyday job, e.g.
//   vxiso surface --field gyroid --size 128 -t 0 -o gyroid.ply
//   vxiso info brain.nii.gz
//   vxiso isolines brain.nii.gz --slice z --uniform 20 100 5 -o lines.svg
// Each subcommand is a file of its own (VxisoSurface.cpp, VxisoIsolines.cpp, VxisoInfo.cpp); the options are
// one table (VxisoOptionTable.cpp) that the parser reads by and the help is made from (VxisoOptions.cpp); the
// inputs they share are read in VxisoInputs.cpp.
#include "VxisoOptions.h"
#include "VxisoSubcommands.h"

#include <kx/KxException.h>
#include <kx/KxMemory.h>

#include <QCoreApplication>

#include <cstdio>
#include <new>
#include <string>
#include <vector>

namespace {

struct Subcommand
{
    VxisoCommand command;
    int (*run)(const std::vector<std::string>& args);
};

const Subcommand kSubcommands[] = {
    {VxisoCommand::Surface, vxisoSurface},
    {VxisoCommand::Info, vxisoInfo},
    {VxisoCommand::Isolines, vxisoIsolines},
    {VxisoCommand::Contours, vxisoContours},
};

const Subcommand* find(const std::string& name)
{
    for (const Subcommand& s : kSubcommands)
        if (name == vxisoCommandName(s.command)) return &s;
    return nullptr;
}

// Help wins over everything else on the line, even over a word that would be an option's value.
bool asksForHelp(const std::vector<std::string>& words)
{
    for (const std::string& w : words)
        if (vxisoAsksForHelp(w)) return true;
    return false;
}

int run(const std::vector<std::string>& words)
{
    if (words.empty()) throw VxisoUsageError{"no command (try 'vxiso surface --help')"};
    const std::string& command = words.front();
    if (vxisoAsksForHelp(command) || command == "help") {
        std::fputs(vxisoHelp().c_str(), stdout);
        return 0;
    }
    const Subcommand* subcommand = find(command);
    if (!subcommand) throw VxisoUsageError{"unknown command '" + command + "' (try 'vxiso --help')"};
    if (asksForHelp(words)) {
        std::fputs(vxisoHelp().c_str(), stdout);
        return 0;
    }
    return subcommand->run(std::vector<std::string>(words.begin() + 1, words.end()));
}

} // namespace

int main(int argc, char** argv)
{
    kxReturnLargeBlocksToSystem();
    QCoreApplication qapp(argc, argv);
    try {
        return run(std::vector<std::string>(argv + 1, argv + argc));
    } catch (const VxisoUsageError& e) {
        std::fprintf(stderr, "vxiso: error: %s\n", e.text.c_str());
        return 2;
    } catch (const KxException& e) {
        std::fprintf(stderr, "vxiso: error: %s\n", e.what());
        return 1;
    } catch (const std::bad_alloc& e) {
        // The foundation's allocator says how much it could not get.
        const bool sized = dynamic_cast<const KxOutOfMemory*>(&e) != nullptr;
        std::fprintf(stderr, "vxiso: error: %s\n", sized ? e.what() : "out of memory");
        return 1;
    } catch (const std::exception& e) {
        std::fprintf(stderr, "vxiso: error: %s\n", e.what());
        return 1;
    }
}
