#pragma once
#include <Inventor/SbColor.h>
#include <Inventor/SbVec3f.h>

#include <QImage>
#include <QString>

#include <memory>

class SoNode;

// Draws an Open Inventor scene into an image without any window system: an OpenGL context on Mesa's
// surfaceless EGL platform renders into a framebuffer object whose pixels are read back. Usable on a
// headless machine, in tests and in batch jobs.
//
// Each renderer owns its own context and its own render cache id, so several renderers may coexist.
// The context is current only during render(); a context the caller had current through EGL is made
// current again afterwards.
class SoOffscreenEGLRenderer
{
public:
    SoOffscreenEGLRenderer(int width, int height);
    ~SoOffscreenEGLRenderer();
    SoOffscreenEGLRenderer(const SoOffscreenEGLRenderer&) = delete;
    SoOffscreenEGLRenderer& operator=(const SoOffscreenEGLRenderer&) = delete;

    // Whether off-screen rendering works on this machine; if not, why contains the reason.
    static bool isAvailable(QString* why = nullptr);

    int width() const { return m_width; }
    int height() const { return m_height; }

    void setBackgroundColor(const SbColor& color) { m_background = color; }
    const SbColor& getBackgroundColor() const { return m_background; }

    // Direction in which renderViewAll() looks at the scene; (0, 0, -1) by default.
    void setViewDirection(const SbVec3f& direction);
    const SbVec3f& getViewDirection() const { return m_viewDirection; }
    // Which way is up in renderViewAll()'s picture, as nearly as the view direction allows; (0, 1, 0)
    // by default (z up suits scans whose z axis runs from feet to head).
    void setViewUp(const SbVec3f& up) { m_viewUp = up; }
    const SbVec3f& getViewUp() const { return m_viewUp; }

    // Renders the scene as it is: it must bring its own camera and lights. Returns false, with the reason
    // in errorString(), when no picture could be made.
    bool render(SoNode* scene);
    // Renders the scene through a perspective camera that looks along the view direction and shows all of
    // it, lit by a light from the eye. The scene brings no camera of its own.
    bool renderViewAll(SoNode* scene);
    bool renderViewAll(SoNode* scene, const SbVec3f& viewDirection);

    // The last picture, top row first, opaque; a null image before the first successful render.
    QImage getImage() const { return m_image; }
    // Writes the last picture as PNG. The file appears complete or not at all: an existing file is
    // replaced only once the new one is fully written.
    bool writePNG(const QString& path, QString* error = nullptr) const;

    QString errorString() const { return m_error; }

private:
    struct Context;
    bool ensureContext();

    int m_width;
    int m_height;
    SbColor m_background{0.f, 0.f, 0.f};
    SbVec3f m_viewDirection{0.f, 0.f, -1.f};
    SbVec3f m_viewUp{0.f, 1.f, 0.f};
    std::unique_ptr<Context> m_context;
    QImage m_image;
    QString m_error;
};
