#pragma once
#include <QString>

class SoSeparator;

// Reads an Open Inventor file (.iv, ASCII or binary) into a scene. Node types the file names that no
// loaded library defines are read as unknown nodes with the fields the file declares.
class VxInventorReader
{
public:
    static bool isScenePath(const QString& path);
    // The scene, not referenced; null with one sentence in error when the file cannot be read.
    static SoSeparator* read(const QString& path, QString* error = nullptr);
};
