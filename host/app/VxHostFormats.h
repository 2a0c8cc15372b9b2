#pragma once
class VxApplication;

// Gives the host its file formats: the volume readers behind "load" and the writers behind
// "exportData" and "save".
void vxhostInstallFormats(VxApplication* app);
