#pragma once
class SoNode;
class VxChunkWriter;

// Writes a scene graph as an ASCII Open Inventor file into a chunk writer, every float in its
// shortest exact text.
class VxInventorWriter
{
public:
    static void write(SoNode* root, VxChunkWriter& w);
};
