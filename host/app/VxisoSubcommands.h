#pragma once
#include <string>
#include <vector>

// The subcommands of vxiso, one file each. Each takes the words after its name and returns the
// exit status; a wrong command line throws VxisoUsageError, a failure KxException.
int vxisoSurface(const std::vector<std::string>& args);
int vxisoInfo(const std::vector<std::string>& args);
int vxisoIsolines(const std::vector<std::string>& args);
int vxisoContours(const std::vector<std::string>& args);
