#include "../support/TestSurfaces.h"

#include <kx/KxHandle.h>
#include <oiv/OivInit.h>
#include <oiv/SoOffscreenEGLRenderer.h>
#include <oiv/SoTriSurface.h>

#include <Inventor/nodes/SoDirectionalLight.h>
#include <Inventor/nodes/SoFont.h>
#include <Inventor/nodes/SoMaterial.h>
#include <Inventor/nodes/SoOrthographicCamera.h>
#include <Inventor/nodes/SoSeparator.h>
#include <Inventor/nodes/SoSphere.h>
#include <Inventor/nodes/SoText3.h>
#include <Inventor/nodes/SoTranslation.h>

#include <QDir>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <fstream>
#include <functional>
#include <memory>

namespace {

// Background whose bytes are exact, so that untouched pixels compare equal.
const QRgb kBackground = qRgb(51, 102, 153);

class SoOffscreenEGLRendererTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        oivInit();
        QString why;
        if (!SoOffscreenEGLRenderer::isAvailable(&why)) GTEST_SKIP() << why.toStdString();
    }
};

struct Renderer : SoOffscreenEGLRenderer
{
    Renderer(int w, int h) : SoOffscreenEGLRenderer(w, h) { setBackgroundColor(SbColor(0.2f, 0.4f, 0.6f)); }
    // The picture of the whole scene seen along the direction; null when it could not be drawn.
    QImage viewAll(SoNode* scene, const SbVec3f& direction = SbVec3f(0.f, 0.f, -1.f))
    {
        EXPECT_TRUE(renderViewAll(scene, direction)) << errorString().toStdString();
        return getImage();
    }
};

SoSeparator* materialScene(const SbColor& diffuse, SoNode* shape)
{
    auto* root = new SoSeparator;
    auto* material = new SoMaterial;
    material->diffuseColor = diffuse;
    root->addChild(material);
    root->addChild(shape);
    return root;
}

SoSeparator* sphereScene(SoTriSurface::DrawStyle style)
{
    SoTriSurface* surface = makeSurface(makeIcosphere(3));
    surface->drawStyle = style;
    return materialScene(SbColor(0.8f, 0.6f, 0.2f), surface);
}

// The pixels that pass, by default those that are not background.
int countPixels(
    const QImage& image, const std::function<bool(QRgb)>& which = [](QRgb p) { return p != kBackground; })
{
    int n = 0;
    for (int y = 0; y < image.height(); ++y)
        for (int x = 0; x < image.width(); ++x) n += which(image.pixel(x, y));
    return n;
}

} // namespace

// Framed by viewAll or by the scene's own camera, the sphere is lit and where the camera puts it.
TEST_F(SoOffscreenEGLRendererTest, SphereIsLitRoundAndWhereTheCameraPutsIt)
{
    // Not square: a mix-up of width and height or of the aspect ratio shows as an ellipse.
    Renderer renderer(160, 120);
    const KxHandle<SoSeparator> scene(sphereScene(SoTriSurface::SHADED));
    const QImage image = renderer.viewAll(scene);
    ASSERT_EQ(image.size(), QSize(160, 120));
    // The centre faces the headlight: the material's own hue, bright.
    const QRgb centre = image.pixel(80, 60);
    EXPECT_TRUE(qRed(centre) > 150 && qRed(centre) > qGreen(centre) && qGreen(centre) > qBlue(centre));
    const int across = countPixels(image.copy(0, 60, 160, 1));
    EXPECT_GT(across, 60);
    EXPECT_NEAR(across, countPixels(image.copy(80, 0, 1, 120)), 3);
    // Centred: as much background left of the disc as right of it.
    int left = 0, right = 0;
    while (image.pixel(left, 60) == kBackground) ++left;
    while (image.pixel(159 - right, 60) == kBackground) ++right;
    EXPECT_NEAR(left, right, 2);

    const KxHandle<SoSeparator> root(new SoSeparator);
    auto* camera = new SoOrthographicCamera;
    camera->position = SbVec3f(0.f, 0.f, 5.f);
    camera->height = 4.f;
    root->addChild(camera);
    root->addChild(new SoDirectionalLight);
    root->addChild(scene);
    // The sphere of radius 1 spans a quarter of the 4-unit-high view on each side of the centre: 30 of
    // 120 pixels.
    ASSERT_TRUE(renderer.render(root)) << renderer.errorString().toStdString();
    const QImage own = renderer.getImage();
    EXPECT_NE(own.pixel(80 + 27, 60), kBackground);
    EXPECT_NE(own.pixel(80, 60 - 27), kBackground);
    EXPECT_EQ(own.pixel(80 + 33, 60), kBackground);
    EXPECT_EQ(own.pixel(80, 60 + 33), kBackground);
    EXPECT_NEAR(countPixels(own.copy(0, 60, 160, 1)), 60, 2);
}

TEST_F(SoOffscreenEGLRendererTest, DrawStylesPackedColoursAndBadTrianglesReachThePicture)
{
    // Few, large triangles: wireframe lines must not merge into a filled disc, nor vanish.
    const TestMesh mesh = makeIcosphere(1);
    SoTriSurface* surface = makeSurface(mesh);
    const KxHandle<SoSeparator> scene(materialScene(SbColor(0.8f, 0.8f, 0.8f), surface));
    Renderer renderer(128, 128);
    auto dark = [](QRgb p) { return qGray(p) < 20; };
    const QImage shaded = renderer.viewAll(scene);
    EXPECT_EQ(countPixels(shaded, dark), 0);
    // Triangles that point past the vertices or before the first one are skipped.
    surface->triangles.set1Value(mesh.numTriangles(), SbVec3i32(0, 1, 1 << 30));
    surface->triangles.set1Value(mesh.numTriangles() + 1, SbVec3i32(-7, 1, 2));
    EXPECT_EQ(renderer.viewAll(scene), shaded);
    surface->drawStyle = SoTriSurface::WIREFRAME;
    const int wireInk = countPixels(renderer.viewAll(scene));
    EXPECT_GT(countPixels(shaded), 2000);
    EXPECT_LT(wireInk, countPixels(shaded) * 2 / 3);
    EXPECT_GT(wireInk, 300);
    // The black edges must win over the faces they lie on, not fight them for depth.
    surface->drawStyle = SoTriSurface::SHADED_OUTLINED;
    EXPECT_GT(countPixels(renderer.viewAll(scene), dark), 650);
    surface->drawStyle = SoTriSurface::SHADED;

    // 0xRRGGBBAA: one colour for all, then the front half (z > 0) blue and the back half green.
    auto only = [](QRgb p, int (*main)(QRgb)) {
        return main(p) > 150 && qRed(p) + qGreen(p) + qBlue(p) - main(p) < 40;
    };
    surface->colors = 0xff0000ffu;
    EXPECT_TRUE(only(renderer.viewAll(scene).pixel(64, 64), qRed));
    std::vector<uint32_t> perVertex;
    for (int v = 0; v < mesh.numPoints(); ++v)
        perVertex.push_back(mesh.coords[size_t(3 * v + 2)] > 0.f ? 0x0000ffffu : 0x00ff00ffu);
    surface->colors.setValues(0, int(perVertex.size()), perVertex.data());
    surface->materialBinding = SoTriSurface::PER_VERTEX;
    EXPECT_TRUE(only(renderer.viewAll(scene).pixel(64, 64), qBlue));
    EXPECT_TRUE(only(renderer.viewAll(scene, SbVec3f(0.f, 0.f, 1.f)).pixel(64, 64), qGreen));
}

TEST_F(SoOffscreenEGLRendererTest, ViewDirectionDecidesWhatIsInFront)
{
    // A large red sphere at the origin and a small green one in front of it on +z.
    const KxHandle<SoSeparator> scene(materialScene(SbColor(1.f, 0.f, 0.f), new SoSphere));
    auto* small = new SoSphere;
    small->radius = 0.3f;
    SoSeparator* front = materialScene(SbColor(0.f, 1.f, 0.f), small);
    auto* shift = new SoTranslation;
    shift->translation = SbVec3f(0.f, 0.f, 2.f);
    front->insertChild(shift, 0);
    scene->addChild(front);

    Renderer renderer(120, 120);
    auto greenish = [](QRgb p) { return qGreen(p) > 2 * qRed(p) && qGreen(p) > 60; };
    auto reddish = [](QRgb p) { return qRed(p) > 2 * qGreen(p) && qRed(p) > 60; };
    EXPECT_TRUE(greenish(renderer.viewAll(scene).pixel(60, 60))); // looking down -z, from the green side
    EXPECT_TRUE(reddish(renderer.viewAll(scene, SbVec3f(0.f, 0.f, 1.f)).pixel(60, 60)));
    // Looking down -x with +y up puts +z on the left of the picture.
    const QImage side = renderer.viewAll(scene, SbVec3f(-1.f, 0.f, 0.f));
    EXPECT_GT(countPixels(side.copy(0, 0, 60, 120), greenish), 20);
    EXPECT_EQ(countPixels(side.copy(60, 0, 60, 120), greenish), 0);
    // Looking straight down still gives a picture (no degenerate up vector).
    EXPECT_TRUE(reddish(renderer.viewAll(scene, SbVec3f(0.f, -1.f, 0.f)).pixel(60, 60)));
}

TEST_F(SoOffscreenEGLRendererTest, RenderersKeepTheirOwnCachesAndRepeatExactly)
{
    const KxHandle<SoSeparator> scene(sphereScene(SoTriSurface::SHADED_OUTLINED));
    // Display lists from the second pass on, whatever the toolkit's heuristics would decide.
    scene->renderCaching = SoSeparator::ON;
    auto first = std::make_unique<Renderer>(64, 64);
    Renderer second(96, 80);
    // Render caches built for one context must never be replayed in the other.
    const QImage once = first->viewAll(scene);
    for (int pass = 0; pass < 3; ++pass) {
        EXPECT_NE(second.viewAll(scene).pixel(48, 40), kBackground) << "pass " << pass;
        EXPECT_EQ(first->viewAll(scene), once) << "pass " << pass;
    }
    // A renderer made after another one is gone starts without the old context's caches.
    first.reset();
    Renderer third(64, 64);
    for (int pass = 0; pass < 2; ++pass) EXPECT_EQ(third.viewAll(scene), once) << "pass " << pass;
}

TEST_F(SoOffscreenEGLRendererTest, Text3IsDrawnWithRealFonts)
{
    auto textScene = [](const char* family) {
        auto* font = new SoFont;
        font->name = family, font->size = 2.f;
        auto* text = new SoText3;
        text->string = "Iso 42", text->parts = SoText3::ALL;
        SoSeparator* root = materialScene(SbColor(1.f, 1.f, 0.f), font);
        root->addChild(text);
        return root;
    };
    const KxHandle<SoSeparator> sans(textScene("DejaVu Sans")), serif(textScene("DejaVu Serif:Bold"));
    Renderer renderer(240, 120);
    const QImage sansImage = renderer.viewAll(sans);
    EXPECT_GT(countPixels(sansImage), 1500);
    EXPECT_LT(countPixels(sansImage), 240 * 120 / 2);
    // The toolkit falls back to one built-in outline font when it cannot load font files, and then every
    // family looks the same.
    EXPECT_NE(renderer.viewAll(serif), sansImage);
}

// The picture is written whole or not at all: an old file of the same name is replaced completely,
// and a failed write leaves nothing behind.
TEST_F(SoOffscreenEGLRendererTest, PngIsWrittenWholeOrNotAtAll)
{
    Renderer renderer(90, 70);
    const KxHandle<SoSeparator> scene(sphereScene(SoTriSurface::SHADED));
    QTemporaryDir dir;
    const QString path = dir.filePath("sphere.png"), missing = dir.filePath("no/such/dir/sphere.png");
    QString error;
    EXPECT_FALSE(renderer.writePNG(path, &error));
    EXPECT_EQ(error, "Cannot write the picture '" + path + "': nothing has been rendered");
    std::ofstream(path.toStdString()) << std::string(100000, 'x');
    const QImage written = renderer.viewAll(scene);
    ASSERT_TRUE(renderer.writePNG(path, &error)) << error.toStdString();
    EXPECT_EQ(QImage(path, "png").convertToFormat(written.format()), written);
    EXPECT_FALSE(renderer.writePNG(missing, &error));
    EXPECT_EQ(error, "cannot write " + missing + ": No such file or directory");
    EXPECT_EQ(QDir(dir.path()).entryList(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden),
              QStringList{"sphere.png"});
}

TEST_F(SoOffscreenEGLRendererTest, MisuseIsReportedNotCrashed)
{
    const KxHandle<SoSphere> sphere(new SoSphere);
    SoOffscreenEGLRenderer empty(0, 50);
    EXPECT_FALSE(empty.render(sphere));
    EXPECT_EQ(empty.errorString(), "Off-screen rendering: a 0 x 50 picture has no pixels");
    SoOffscreenEGLRenderer huge(40000, 10);
    EXPECT_FALSE(huge.render(sphere));
    EXPECT_TRUE(huge.errorString().startsWith(
        "Off-screen rendering: a 40000 x 10 picture exceeds the largest this OpenGL driver draws ("))
        << huge.errorString().toStdString();

    SoOffscreenEGLRenderer renderer(32, 32);
    EXPECT_FALSE(renderer.render(nullptr));
    EXPECT_EQ(renderer.errorString(), "Off-screen rendering: there is no scene to draw");
    EXPECT_FALSE(renderer.renderViewAll(sphere, SbVec3f(0.f, 0.f, 0.f)));
    EXPECT_EQ(renderer.errorString(), "Off-screen rendering: the view direction (0, 0, 0) has no length");
    EXPECT_TRUE(renderer.getImage().isNull());
    // A scene nobody holds survives the render and is still the caller's to free.
    auto* loose = new SoSphere;
    EXPECT_TRUE(renderer.render(loose));
    EXPECT_EQ(loose->getRefCount(), 0);
    const KxHandle<SoSphere> freed(loose);
}
