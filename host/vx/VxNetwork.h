#pragma once
#include <QString>

// Saved networks: a Tcl script that rebuilds the project. It starts with the line
// "# vxhost network", declares the version it was written for, reloads the data objects from their
// files and replays what scripts changed in them since (VxObject::getEdits), creates the modules, and replays
// every module's savePorts() lines (connections, port values, and "doIt hit" where a module had computed, so
// that loading computes it again).
namespace VxNetwork {
// Writes the project to the file (under a temporary name, renamed when complete); false and a
// sentence naming the file in *why on failure.
bool save(const QString& path, QString* why);
} // namespace VxNetwork
