#pragma once
#include <QString>

class SoSeparator;

// A viewer: a scene root that modules add their geometry to.
class VxDisplay
{
public:
    explicit VxDisplay(SoSeparator* root, const QString& name = "viewer 0") : m_root(root), m_name(name) {}
    SoSeparator* getSceneRoot() const { return m_root; }
    const QString& getName() const { return m_name; }

private:
    SoSeparator* m_root;
    QString m_name;
};
