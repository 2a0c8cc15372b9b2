#include <oiv/OivInit.h>
#include <oiv/OivSceneBox.h>
#include <oiv/SoOffscreenEGLRenderer.h>

#include <kx/KxTempFile.h>

#include <Inventor/SbLinear.h>
#include <Inventor/SbViewportRegion.h>
#include <Inventor/SoPath.h>
#include <Inventor/actions/SoGLRenderAction.h>
#include <Inventor/actions/SoGetBoundingBoxAction.h>
#include <Inventor/actions/SoSearchAction.h>
#include <Inventor/elements/SoGLCacheContextElement.h>
#include <Inventor/errors/SoDebugError.h>
#include <Inventor/lists/SoPathList.h>
#include <Inventor/misc/SoContextHandler.h>
#include <Inventor/nodekits/SoBaseKit.h>
#include <Inventor/nodes/SoDirectionalLight.h>
#include <Inventor/nodes/SoPerspectiveCamera.h>
#include <Inventor/nodes/SoSeparator.h>
#include <Inventor/nodes/SoShape.h>

#include <EGL/egl.h>
#include <EGL/eglext.h>
#include <GL/gl.h>
#include <GL/glext.h>

#include <QBuffer>
#include <QCoreApplication>
#include <QImageWriter>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <optional>
#include <type_traits>
#include <vector>

namespace {

QString tr(const char* text)
{
    return QCoreApplication::translate("SoOffscreenEGLRenderer", text);
}

QString eglErrorText()
{
    return QStringLiteral("EGL error 0x%1").arg(unsigned(eglGetError()), 4, 16, QLatin1Char('0'));
}

bool hasExtension(const char* list, const char* name)
{
    if (!list) return false;
    const size_t n = std::strlen(name);
    for (const char* p = list; (p = std::strstr(p, name)) != nullptr; p += n) {
        const bool startsWord = p == list || p[-1] == ' ';
        if (startsWord && (p[n] == ' ' || p[n] == '\0')) return true;
    }
    return false;
}

// One surfaceless display for the whole process, initialised while any renderer uses it. Terminating it
// while another renderer still has a context on it would pull that context away.
class SurfacelessDisplay
{
public:
    static EGLDisplay acquire(QString* error)
    {
        std::lock_guard<std::mutex> lock(mutex());
        State& s = state();
        if (s.users == 0) {
            s.display = open(error);
            if (s.display == EGL_NO_DISPLAY) return EGL_NO_DISPLAY;
        }
        ++s.users;
        return s.display;
    }

    static void release()
    {
        std::lock_guard<std::mutex> lock(mutex());
        State& s = state();
        if (s.users > 0 && --s.users == 0) {
            eglTerminate(s.display);
            s.display = EGL_NO_DISPLAY;
        }
    }

private:
    struct State
    {
        EGLDisplay display = EGL_NO_DISPLAY;
        int users = 0;
    };
    static State& state()
    {
        static State s;
        return s;
    }
    static std::mutex& mutex()
    {
        static std::mutex m;
        return m;
    }

    static EGLDisplay open(QString* error)
    {
        const char* clientExtensions = eglQueryString(EGL_NO_DISPLAY, EGL_EXTENSIONS);
        if (!hasExtension(clientExtensions, "EGL_EXT_platform_base") ||
            !hasExtension(clientExtensions, "EGL_MESA_platform_surfaceless")) {
            *error = tr("EGL has no surfaceless platform (Mesa's EGL driver, libegl-mesa0, is missing)");
            return EGL_NO_DISPLAY;
        }
        auto getPlatformDisplay =
            reinterpret_cast<PFNEGLGETPLATFORMDISPLAYEXTPROC>(eglGetProcAddress("eglGetPlatformDisplayEXT"));
        EGLDisplay display = getPlatformDisplay ? getPlatformDisplay(EGL_PLATFORM_SURFACELESS_MESA,
                                                                     EGL_DEFAULT_DISPLAY, nullptr)
                                                : EGL_NO_DISPLAY;
        if (display == EGL_NO_DISPLAY) {
            *error = tr("cannot open the surfaceless EGL display (%1)").arg(eglErrorText());
            return EGL_NO_DISPLAY;
        }
        EGLint major = 0, minor = 0;
        if (!eglInitialize(display, &major, &minor)) {
            *error = tr("cannot initialise the surfaceless EGL display (%1)").arg(eglErrorText());
            return EGL_NO_DISPLAY;
        }
        return display;
    }
};

// Render cache ids of renderers that are gone, for reuse. The toolkit keeps the OpenGL glue it builds for
// an id until the process ends; without reuse every snapshot would leave one behind. All contexts come
// from the same driver with the same settings, so a returned id's glue fits its next context too.
class CacheContextIds
{
public:
    static uint32_t take()
    {
        std::lock_guard<std::mutex> lock(mutex());
        if (spare().empty()) return SoGLCacheContextElement::getUniqueCacheContext();
        const uint32_t id = spare().back();
        spare().pop_back();
        return id;
    }
    // Only after SoContextHandler::destructingContext(id): nothing of the old context may remain.
    static void giveBack(uint32_t id)
    {
        std::lock_guard<std::mutex> lock(mutex());
        spare().push_back(id);
    }

private:
    static std::vector<uint32_t>& spare()
    {
        static std::vector<uint32_t> ids;
        return ids;
    }
    static std::mutex& mutex()
    {
        static std::mutex m;
        return m;
    }
};

// Whatever EGL context the calling thread had current is made current again when this goes out of scope,
// so that rendering a snapshot does not disturb a caller that draws with EGL itself.
class CurrentContextScope
{
public:
    CurrentContextScope()
        : m_api(eglQueryAPI()), m_display(eglGetCurrentDisplay()), m_context(eglGetCurrentContext()),
          m_draw(eglGetCurrentSurface(EGL_DRAW)), m_read(eglGetCurrentSurface(EGL_READ))
    {
    }
    ~CurrentContextScope()
    {
        if (m_context != EGL_NO_CONTEXT) {
            eglBindAPI(m_api);
            eglMakeCurrent(m_display, m_draw, m_read, m_context);
            return;
        }
        if (EGLDisplay current = eglGetCurrentDisplay(); current != EGL_NO_DISPLAY)
            eglMakeCurrent(current, EGL_NO_SURFACE, EGL_NO_SURFACE, EGL_NO_CONTEXT);
        eglBindAPI(m_api);
    }
    CurrentContextScope(const CurrentContextScope&) = delete;
    CurrentContextScope& operator=(const CurrentContextScope&) = delete;

private:
    EGLenum m_api;
    EGLDisplay m_display;
    EGLContext m_context;
    EGLSurface m_draw;
    EGLSurface m_read;
};

// The toolkit's OpenGL glue asks GLX whether a new context renders directly and warns when no GLX context
// is current, which under EGL is always the case (it then rightly assumes direct rendering). The warning
// would end up in every program's output, so it is dropped while a context meets the toolkit for the
// first time; every other message goes where it went before.
class GlxProbeWarningFilter
{
public:
    GlxProbeWarningFilter()
        : m_previous(SoDebugError::getHandlerCallback()), m_previousData(SoDebugError::getHandlerData())
    {
        SoDebugError::setHandlerCallback(&filter, this);
    }
    ~GlxProbeWarningFilter() { SoDebugError::setHandlerCallback(m_previous, m_previousData); }
    GlxProbeWarningFilter(const GlxProbeWarningFilter&) = delete;
    GlxProbeWarningFilter& operator=(const GlxProbeWarningFilter&) = delete;

private:
    static void filter(const SoError* error, void* data)
    {
        const char* text = error->getDebugString().getString();
        if (std::strstr(text, "glxglue_isdirect")) return;
        auto* self = static_cast<GlxProbeWarningFilter*>(data);
        if (self->m_previous)
            self->m_previous(error, self->m_previousData);
        else
            std::fprintf(stderr, "%s\n", text);
    }

    SoErrorCB* m_previous;
    void* m_previousData;
};

// The camera's rotation looking along direction, with the up hint as nearly up in the picture as it
// can be; a hint along the direction falls back to y up, or z when looking along y.
SbRotation lookingAlong(const SbVec3f& direction, SbVec3f up)
{
    const SbVec3f back = -direction;
    if (!(up.normalize() > 0.f) || std::fabs(back.dot(up)) > 0.999f) up = SbVec3f(0.f, 1.f, 0.f);
    if (std::fabs(back.dot(up)) > 0.999f) up = SbVec3f(0.f, 0.f, direction[1] < 0.f ? -1.f : 1.f);
    SbVec3f right = up.cross(back);
    right.normalize();
    const SbVec3f trueUp = back.cross(right);
    // Rows are the images of the camera's axes: x to the right, y up, z towards the viewer.
    const SbMatrix m(right[0], right[1], right[2], 0.f, trueUp[0], trueUp[1], trueUp[2], 0.f, back[0],
                     back[1], back[2], 0.f, 0.f, 0.f, 0.f, 1.f);
    return SbRotation(m);
}

} // namespace

struct SoOffscreenEGLRenderer::Context
{
    EGLDisplay display = EGL_NO_DISPLAY;
    EGLContext context = EGL_NO_CONTEXT;
    GLuint framebuffer = 0;
    GLuint colorBuffer = 0;
    GLuint depthBuffer = 0;
    uint32_t cacheContext = 0;
    bool toolkitHasSeenContext = false;

    PFNGLGENFRAMEBUFFERSPROC genFramebuffers = nullptr;
    PFNGLDELETEFRAMEBUFFERSPROC deleteFramebuffers = nullptr;
    PFNGLBINDFRAMEBUFFERPROC bindFramebuffer = nullptr;
    PFNGLCHECKFRAMEBUFFERSTATUSPROC checkFramebufferStatus = nullptr;
    PFNGLFRAMEBUFFERRENDERBUFFERPROC framebufferRenderbuffer = nullptr;
    PFNGLGENRENDERBUFFERSPROC genRenderbuffers = nullptr;
    PFNGLDELETERENDERBUFFERSPROC deleteRenderbuffers = nullptr;
    PFNGLBINDRENDERBUFFERPROC bindRenderbuffer = nullptr;
    PFNGLRENDERBUFFERSTORAGEPROC renderbufferStorage = nullptr;

    ~Context()
    {
        if (context != EGL_NO_CONTEXT) {
            CurrentContextScope restore;
            eglBindAPI(EGL_OPENGL_API);
            if (eglMakeCurrent(display, EGL_NO_SURFACE, EGL_NO_SURFACE, context)) {
                // Display lists, textures and buffers the toolkit made for this context go first.
                if (cacheContext) {
                    SoContextHandler::destructingContext(cacheContext);
                    CacheContextIds::giveBack(cacheContext);
                }
                if (framebuffer) deleteFramebuffers(1, &framebuffer);
                if (colorBuffer) deleteRenderbuffers(1, &colorBuffer);
                if (depthBuffer) deleteRenderbuffers(1, &depthBuffer);
                eglMakeCurrent(display, EGL_NO_SURFACE, EGL_NO_SURFACE, EGL_NO_CONTEXT);
            }
            eglDestroyContext(display, context);
        }
        if (display != EGL_NO_DISPLAY) SurfacelessDisplay::release();
    }

    bool makeCurrent() const
    {
        return eglBindAPI(EGL_OPENGL_API) && eglMakeCurrent(display, EGL_NO_SURFACE, EGL_NO_SURFACE, context);
    }

    bool create(int width, int height, QString* error);

private:
    bool createContext(QString* error);
    bool loadFramebufferFunctions(QString* error);
    bool createFramebuffer(int width, int height, QString* error);
};

bool SoOffscreenEGLRenderer::Context::create(int width, int height, QString* error)
{
    display = SurfacelessDisplay::acquire(error);
    if (display == EGL_NO_DISPLAY) return false;
    if (!createContext(error)) return false;
    CurrentContextScope restore;
    if (!makeCurrent()) {
        *error = tr("cannot make the OpenGL context current without a surface (%1)").arg(eglErrorText());
        return false;
    }
    if (!loadFramebufferFunctions(error) || !createFramebuffer(width, height, error)) return false;
    cacheContext = CacheContextIds::take();
    return true;
}

bool SoOffscreenEGLRenderer::Context::createContext(QString* error)
{
    const char* extensions = eglQueryString(display, EGL_EXTENSIONS);
    if (!hasExtension(extensions, "EGL_KHR_surfaceless_context")) {
        *error = tr("the EGL driver cannot use a context without a surface");
        return false;
    }
    // The scene graph draws with fixed-function OpenGL: desktop GL, compatibility profile.
    if (!eglBindAPI(EGL_OPENGL_API)) {
        *error = tr("the EGL driver does not offer desktop OpenGL (%1)").arg(eglErrorText());
        return false;
    }
    EGLConfig config = EGL_NO_CONFIG_KHR;
    if (!hasExtension(extensions, "EGL_KHR_no_config_context") &&
        !hasExtension(extensions, "EGL_MESA_configless_context")) {
        const EGLint wanted[] = {EGL_RENDERABLE_TYPE, EGL_OPENGL_BIT, EGL_SURFACE_TYPE, EGL_PBUFFER_BIT,
                                 EGL_NONE};
        EGLint count = 0;
        if (!eglChooseConfig(display, wanted, &config, 1, &count) || count < 1) {
            *error = tr("no EGL configuration renders desktop OpenGL");
            return false;
        }
    }
    const EGLint compatibility[] = {EGL_CONTEXT_OPENGL_PROFILE_MASK_KHR,
                                    EGL_CONTEXT_OPENGL_COMPATIBILITY_PROFILE_BIT_KHR, EGL_NONE};
    const bool canAskProfile = hasExtension(extensions, "EGL_KHR_create_context");
    context = eglCreateContext(display, config, EGL_NO_CONTEXT, canAskProfile ? compatibility : nullptr);
    if (context == EGL_NO_CONTEXT && canAskProfile)
        context = eglCreateContext(display, config, EGL_NO_CONTEXT, nullptr);
    if (context == EGL_NO_CONTEXT) {
        *error = tr("cannot create an OpenGL context (%1)").arg(eglErrorText());
        return false;
    }
    return true;
}

bool SoOffscreenEGLRenderer::Context::loadFramebufferFunctions(QString* error)
{
    const char* version = reinterpret_cast<const char*>(glGetString(GL_VERSION));
    const char* extensions = reinterpret_cast<const char*>(glGetString(GL_EXTENSIONS));
    const bool core = version && std::atoi(version) >= 3;
    if (!core && !hasExtension(extensions, "GL_ARB_framebuffer_object")) {
        *error = tr("OpenGL %1 has no framebuffer objects").arg(QString::fromLatin1(version ? version : "?"));
        return false;
    }
    auto load = [](auto& function, const char* name) {
        function = reinterpret_cast<std::remove_reference_t<decltype(function)>>(eglGetProcAddress(name));
        return function != nullptr;
    };
    const bool ok =
        load(genFramebuffers, "glGenFramebuffers") && load(deleteFramebuffers, "glDeleteFramebuffers") &&
        load(bindFramebuffer, "glBindFramebuffer") &&
        load(checkFramebufferStatus, "glCheckFramebufferStatus") &&
        load(framebufferRenderbuffer, "glFramebufferRenderbuffer") &&
        load(genRenderbuffers, "glGenRenderbuffers") && load(deleteRenderbuffers, "glDeleteRenderbuffers") &&
        load(bindRenderbuffer, "glBindRenderbuffer") && load(renderbufferStorage, "glRenderbufferStorage");
    if (!ok) *error = tr("the OpenGL driver does not export the framebuffer object functions");
    return ok;
}

bool SoOffscreenEGLRenderer::Context::createFramebuffer(int width, int height, QString* error)
{
    GLint maxSize = 0;
    glGetIntegerv(GL_MAX_RENDERBUFFER_SIZE, &maxSize);
    // The toolkit's viewport sizes are shorts.
    maxSize = std::min(maxSize, GLint(32767));
    if (width > maxSize || height > maxSize) {
        *error = tr("a %1 x %2 picture exceeds the largest this OpenGL driver draws (%3 x %3)")
                     .arg(width)
                     .arg(height)
                     .arg(maxSize);
        return false;
    }
    genRenderbuffers(1, &colorBuffer);
    bindRenderbuffer(GL_RENDERBUFFER, colorBuffer);
    renderbufferStorage(GL_RENDERBUFFER, GL_RGBA8, width, height);
    genRenderbuffers(1, &depthBuffer);
    bindRenderbuffer(GL_RENDERBUFFER, depthBuffer);
    renderbufferStorage(GL_RENDERBUFFER, GL_DEPTH_COMPONENT24, width, height);
    bindRenderbuffer(GL_RENDERBUFFER, 0);
    genFramebuffers(1, &framebuffer);
    bindFramebuffer(GL_FRAMEBUFFER, framebuffer);
    framebufferRenderbuffer(GL_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, GL_RENDERBUFFER, colorBuffer);
    framebufferRenderbuffer(GL_FRAMEBUFFER, GL_DEPTH_ATTACHMENT, GL_RENDERBUFFER, depthBuffer);
    const GLenum status = checkFramebufferStatus(GL_FRAMEBUFFER);
    bindFramebuffer(GL_FRAMEBUFFER, 0);
    if (status != GL_FRAMEBUFFER_COMPLETE) {
        *error = tr("the OpenGL driver cannot draw into a %1 x %2 framebuffer (status 0x%3)")
                     .arg(width)
                     .arg(height)
                     .arg(status, 4, 16, QLatin1Char('0'));
        return false;
    }
    return true;
}

SoOffscreenEGLRenderer::SoOffscreenEGLRenderer(int width, int height) : m_width(width), m_height(height)
{
    oivInit();
}

SoOffscreenEGLRenderer::~SoOffscreenEGLRenderer() = default;

bool SoOffscreenEGLRenderer::isAvailable(QString* why)
{
    // Creating a context costs a few milliseconds and the answer does not change while the process runs.
    static std::once_flag once;
    static bool available = false;
    static QString reason;
    std::call_once(once, [] {
        SoOffscreenEGLRenderer probe(1, 1);
        available = probe.ensureContext();
        reason = probe.errorString();
    });
    if (why) *why = reason;
    return available;
}

void SoOffscreenEGLRenderer::setViewDirection(const SbVec3f& direction)
{
    m_viewDirection = direction;
}

bool SoOffscreenEGLRenderer::ensureContext()
{
    if (m_context) return true;
    if (m_width < 1 || m_height < 1) {
        m_error = tr("Off-screen rendering: a %1 x %2 picture has no pixels").arg(m_width).arg(m_height);
        return false;
    }
    auto context = std::make_unique<Context>();
    QString reason;
    if (!context->create(m_width, m_height, &reason)) {
        m_error = tr("Off-screen rendering: %1").arg(reason);
        return false;
    }
    m_context = std::move(context);
    return true;
}

bool SoOffscreenEGLRenderer::render(SoNode* scene)
{
    m_error.clear();
    if (!scene) {
        m_error = tr("Off-screen rendering: there is no scene to draw");
        return false;
    }
    if (!ensureContext()) return false;

    CurrentContextScope restore;
    if (!m_context->makeCurrent()) {
        m_error = tr("Off-screen rendering: cannot make the OpenGL context current (%1)").arg(eglErrorText());
        return false;
    }
    // Errors left over from earlier work must not be blamed on this picture.
    for (int i = 0; i < 32 && glGetError() != GL_NO_ERROR; ++i) {
    }
    m_context->bindFramebuffer(GL_FRAMEBUFFER, m_context->framebuffer);
    glViewport(0, 0, m_width, m_height);
    glEnable(GL_DEPTH_TEST);
    glDepthMask(GL_TRUE);
    glColorMask(GL_TRUE, GL_TRUE, GL_TRUE, GL_TRUE);
    glClearColor(m_background[0], m_background[1], m_background[2], 1.f);
    glClearDepth(1.0);
    glClear(GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT);

    // A caller may pass a node nobody holds yet; the action must not be the one to delete it.
    scene->ref();
    {
        std::optional<GlxProbeWarningFilter> quiet;
        if (!m_context->toolkitHasSeenContext) quiet.emplace();
        m_context->toolkitHasSeenContext = true;
        const SbViewportRegion viewport(static_cast<short>(m_width), static_cast<short>(m_height));
        SoGLRenderAction action(viewport);
        action.setCacheContext(m_context->cacheContext);
        action.apply(scene);
    }
    scene->unrefNoDelete();

    std::vector<unsigned char> pixels(size_t(m_width) * size_t(m_height) * 4);
    m_context->bindFramebuffer(GL_READ_FRAMEBUFFER, m_context->framebuffer);
    glPixelStorei(GL_PACK_ALIGNMENT, 1);
    glReadPixels(0, 0, m_width, m_height, GL_RGBA, GL_UNSIGNED_BYTE, pixels.data());
    const GLenum failure = glGetError();
    m_context->bindFramebuffer(GL_FRAMEBUFFER, 0);
    if (failure == GL_OUT_OF_MEMORY) {
        m_error = tr("Off-screen rendering: OpenGL ran out of memory");
        return false;
    }

    // OpenGL's first row is the bottom one; images start at the top. Blended alpha means nothing in a
    // snapshot, so the picture is opaque.
    QImage image(m_width, m_height, QImage::Format_RGBX8888);
    const size_t rowBytes = size_t(m_width) * 4;
    for (int y = 0; y < m_height; ++y) {
        unsigned char* row = image.scanLine(y);
        std::memcpy(row, pixels.data() + size_t(m_height - 1 - y) * rowBytes, rowBytes);
        for (size_t a = 3; a < rowBytes; a += 4) row[a] = 0xff;
    }
    m_image = image;
    return true;
}

bool SoOffscreenEGLRenderer::renderViewAll(SoNode* scene)
{
    return renderViewAll(scene, m_viewDirection);
}

bool SoOffscreenEGLRenderer::renderViewAll(SoNode* scene, const SbVec3f& viewDirection)
{
    m_error.clear();
    if (!scene) {
        m_error = tr("Off-screen rendering: there is no scene to draw");
        return false;
    }
    SbVec3f direction = viewDirection;
    if (!(direction.normalize() > 0.f) || !std::isfinite(direction.length())) {
        m_error = tr("Off-screen rendering: the view direction (%1, %2, %3) has no length")
                      .arg(double(viewDirection[0]))
                      .arg(double(viewDirection[1]))
                      .arg(double(viewDirection[2]));
        return false;
    }
    // Fitting the camera needs the picture's proportions, so a size without pixels must stop here.
    if (!ensureContext()) return false;

    scene->ref();
    auto* root = new SoSeparator;
    root->ref();
    auto* camera = new SoPerspectiveCamera;
    camera->orientation = lookingAlong(direction, m_viewUp);
    root->addChild(camera);
    // A light from the eye, as an interactive viewer's headlight.
    auto* headlight = new SoDirectionalLight;
    headlight->direction = direction;
    root->addChild(headlight);
    root->addChild(scene);
    const SbViewportRegion viewport(static_cast<short>(m_width), static_cast<short>(m_height));
    const SbBox3f box = oivShapesBox(scene);
    if (box.isEmpty())
        camera->viewAll(scene, viewport);
    else
        camera->viewBoundingBox(box, viewport.getViewportAspectRatio(), 1.0f);

    const bool ok = render(root);
    root->unref();
    scene->unrefNoDelete();
    return ok;
}

bool SoOffscreenEGLRenderer::writePNG(const QString& path, QString* error) const
{
    auto fail = [&](const QString& reason) {
        if (error) *error = tr("Cannot write the picture '%1': %2").arg(path, reason);
        return false;
    };
    if (m_image.isNull()) return fail(tr("nothing has been rendered"));

    // Encoded in memory, then written through a temporary file that replaces the target only when
    // complete and that a signal ending the process removes.
    QByteArray png;
    QBuffer buffer(&png);
    buffer.open(QIODevice::WriteOnly);
    QImageWriter writer(&buffer, "png");
    if (!writer.write(m_image)) return fail(writer.errorString());
    KxTempFile file(path);
    QString why;
    if (!file.open(&why) || !file.write(png, &why) || !file.commit(&why)) {
        if (error) *error = why;
        return false;
    }
    return true;
}
