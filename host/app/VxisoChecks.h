#pragma once
#include "VxisoOptions.h"

#include <QString>

#include <utility>
#include <vector>

class VxHostSession;

// The checks and messages that the subcommands which write files share.

// Fails early, before long work, when the file cannot be created (throws KxException).
void vxisoCheckWritable(const std::string& path);

// Writing an output over a file that this run reads would destroy the input; two outputs of one
// name would lose the first. Files are compared as files, so links and other spellings of a name
// are caught too. Each output is the option that names it and its file. Throws VxisoUsageError.
void vxisoRefuseOverwritingInputs(const VxisoOptions& o,
                                  const std::vector<std::pair<const char*, const std::string*>>& outputs);

// --png names a PNG file, and --view and --up are directions a camera can take.
void vxisoCheckPicture(const VxisoOptions& o);

// The module's warnings from the host's record, in the command's voice on stderr.
void vxisoPassOnModuleWarnings();

// A number as the host's commands read it back exactly.
QString vxisoNumber(double v);
