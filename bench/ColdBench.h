#pragma once
// Races in fresh processes, one per run (see ColdBench.cpp).
#include <string>
#include <vector>

struct ColdOptions
{
    int runs = 5;
    std::string ch2better = "/usr/share/mricron/templates/ch2better.nii.gz";
    std::string pipelineScript;           // the VTK Python pipeline of the command race
    std::vector<int> gyroidSizes = {256}; // float32 gyroids beside the fixed volumes
    // Options that make a child process build the same list of volumes.
    std::vector<std::string> forward;
};

// The volumes of the engine race, by index, as a child process builds them.
int coldVolumeCount(const ColdOptions& o);
std::string coldVolumeName(const ColdOptions& o, int index);

// Runs both races; self is this program's path, which runs the engine race's children.
void runColdRaces(const std::string& self, const ColdOptions& o);
