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
#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <memory>
#include <ostream>

// Failure messages name the picture, not its bytes.
void PrintTo(const QImage& image, std::ostream* os)
{
    *os << image.width() << " x " << image.height() << " image, key " << image.cacheKey();
}

namespace {

// Background whose bytes are exact, so that untouched pixels compare equal.
const SbColor kBackground(0.2f, 0.4f, 0.6f);
const QRgb kBackgroundPixel = qRgb(51, 102, 153);

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

// A renderer that clears to the test's background.
struct Renderer : SoOffscreenEGLRenderer
{
    Renderer(int width, int height) : SoOffscreenEGLRenderer(width, height)
    {
        setBackgroundColor(kBackground);
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

SoSeparator* sphereScene(SoTriSurface::DrawStyle style, int subdivisions = 3)
{
    SoTriSurface* surface = makeSurface(makeIcosphere(subdivisions));
    surface->drawStyle = style;
    return materialScene(SbColor(0.8f, 0.6f, 0.2f), surface);
}

int countPixels(const QImage& image, QRgb value)
{
    int n = 0;
    for (int y = 0; y < image.height(); ++y)
        for (int x = 0; x < image.width(); ++x) n += image.pixel(x, y) == value;
    return n;
}

// Length of the run of non-background pixels through (x, y) along a row or a column.
int coveredExtent(const QImage& image, int x, int y, bool horizontal)
{
    int n = 0;
    const int end = horizontal ? image.width() : image.height();
    for (int i = 0; i < end; ++i)
        n += image.pixel(horizontal ? i : x, horizontal ? y : i) != kBackgroundPixel;
    return n;
}

void expectCornersAreBackground(const QImage& image)
{
    const int r = image.width() - 1, b = image.height() - 1;
    EXPECT_EQ(image.pixel(0, 0), kBackgroundPixel);
    EXPECT_EQ(image.pixel(r, 0), kBackgroundPixel);
    EXPECT_EQ(image.pixel(0, b), kBackgroundPixel);
    EXPECT_EQ(image.pixel(r, b), kBackgroundPixel);
}

} // namespace

TEST_F(SoOffscreenEGLRendererTest, ShadedSphereIsLitRoundAndCentred)
{
    // Not square: a mix-up of width and height or of the aspect ratio shows as an ellipse.
    Renderer renderer(160, 120);
    const KxHandle<SoSeparator> scene(sphereScene(SoTriSurface::SHADED));
    ASSERT_TRUE(renderer.renderViewAll(scene)) << renderer.errorString().toStdString();
    const QImage image = renderer.getImage();
    ASSERT_EQ(image.size(), QSize(160, 120));

    // The centre faces the headlight: the material's own hue, bright.
    const QRgb centre = image.pixel(80, 60);
    EXPECT_NE(centre, kBackgroundPixel);
    EXPECT_GT(qRed(centre), 150);
    EXPECT_GT(qRed(centre), qGreen(centre));
    EXPECT_GT(qGreen(centre), qBlue(centre));
    expectCornersAreBackground(image);

    const int across = coveredExtent(image, 80, 60, true);
    const int down = coveredExtent(image, 80, 60, false);
    EXPECT_GT(down, 60);
    EXPECT_NEAR(across, down, 3);
    // Centred: as much background left of the disc as right of it.
    int left = 0;
    while (image.pixel(left, 60) == kBackgroundPixel) ++left;
    int right = 0;
    while (image.pixel(159 - right, 60) == kBackgroundPixel) ++right;
    EXPECT_NEAR(left, right, 2);
}

TEST_F(SoOffscreenEGLRendererTest, WireframeLeavesMoreBackgroundThanShaded)
{
    // Few, large triangles: the lines must not merge into a filled disc.
    Renderer renderer(128, 128);
    const KxHandle<SoSeparator> shaded(sphereScene(SoTriSurface::SHADED, 1));
    const KxHandle<SoSeparator> wire(sphereScene(SoTriSurface::WIREFRAME, 1));
    ASSERT_TRUE(renderer.renderViewAll(shaded)) << renderer.errorString().toStdString();
    const int shadedBackground = countPixels(renderer.getImage(), kBackgroundPixel);
    ASSERT_TRUE(renderer.renderViewAll(wire)) << renderer.errorString().toStdString();
    const QImage wireImage = renderer.getImage();
    const int wireBackground = countPixels(wireImage, kBackgroundPixel);

    const int shadedInk = 128 * 128 - shadedBackground, wireInk = 128 * 128 - wireBackground;
    EXPECT_GT(shadedInk, 2000);
    EXPECT_LT(wireInk, shadedInk * 2 / 3);
    // Still a sphere's worth of lines, not an empty picture.
    EXPECT_GT(wireInk, 300);
}

TEST_F(SoOffscreenEGLRendererTest, OutlinesAndPackedColoursReachThePicture)
{
    const TestMesh mesh = makeIcosphere(1);
    SoTriSurface* surface = makeSurface(mesh);
    const KxHandle<SoSeparator> scene(materialScene(SbColor(0.8f, 0.8f, 0.8f), surface));
    Renderer renderer(128, 128);
    auto darkPixels = [](const QImage& image) {
        int n = 0;
        for (int y = 0; y < image.height(); ++y)
            for (int x = 0; x < image.width(); ++x) n += qGray(image.pixel(x, y)) < 20;
        return n;
    };

    ASSERT_TRUE(renderer.renderViewAll(scene));
    EXPECT_EQ(darkPixels(renderer.getImage()), 0);
    // The black edges must win over the faces they lie on, not fight them for depth.
    surface->drawStyle = SoTriSurface::SHADED_OUTLINED;
    ASSERT_TRUE(renderer.renderViewAll(scene));
    EXPECT_GT(darkPixels(renderer.getImage()), 650);
    surface->drawStyle = SoTriSurface::SHADED;

    // 0xRRGGBBAA: one colour for all, then the front half (z > 0) blue and the back half green.
    surface->colors = 0xff0000ffu;
    ASSERT_TRUE(renderer.renderViewAll(scene));
    QRgb centre = renderer.getImage().pixel(64, 64);
    EXPECT_GT(qRed(centre), 150);
    EXPECT_LT(qGreen(centre) + qBlue(centre), 40);

    std::vector<uint32_t> perVertex;
    for (int v = 0; v < mesh.numPoints(); ++v)
        perVertex.push_back(mesh.coords[size_t(3 * v + 2)] > 0.f ? 0x0000ffffu : 0x00ff00ffu);
    surface->colors.setValues(0, int(perVertex.size()), perVertex.data());
    surface->materialBinding = SoTriSurface::PER_VERTEX;
    ASSERT_TRUE(renderer.renderViewAll(scene));
    centre = renderer.getImage().pixel(64, 64);
    EXPECT_GT(qBlue(centre), 150);
    EXPECT_LT(qRed(centre) + qGreen(centre), 40);
    ASSERT_TRUE(renderer.renderViewAll(scene, SbVec3f(0.f, 0.f, 1.f)));
    centre = renderer.getImage().pixel(64, 64);
    EXPECT_GT(qGreen(centre), 150);
    EXPECT_LT(qRed(centre) + qBlue(centre), 40);
}

TEST_F(SoOffscreenEGLRendererTest, SceneIsDrawnThroughItsOwnCamera)
{
    const KxHandle<SoSeparator> root(new SoSeparator);
    auto* camera = new SoOrthographicCamera;
    camera->position = SbVec3f(0.f, 0.f, 5.f);
    camera->height = 4.f;
    root->addChild(camera);
    root->addChild(new SoDirectionalLight);
    root->addChild(materialScene(SbColor(1.f, 1.f, 1.f), makeSurface(makeIcosphere(3))));

    // The unit sphere spans a quarter of the 4-unit-high view on each side of the centre: 25 of 100 pixels.
    Renderer renderer(100, 100);
    ASSERT_TRUE(renderer.render(root)) << renderer.errorString().toStdString();
    const QImage image = renderer.getImage();
    EXPECT_NE(image.pixel(50, 50), kBackgroundPixel);
    EXPECT_NE(image.pixel(50 + 22, 50), kBackgroundPixel);
    EXPECT_NE(image.pixel(50, 50 - 22), kBackgroundPixel);
    EXPECT_EQ(image.pixel(50 + 28, 50), kBackgroundPixel);
    EXPECT_EQ(image.pixel(50, 50 + 28), kBackgroundPixel);
    EXPECT_NEAR(coveredExtent(image, 50, 50, true), 50, 2);
}

TEST_F(SoOffscreenEGLRendererTest, ViewDirectionDecidesWhatIsInFront)
{
    // A large red sphere at the origin and a small green one in front of it on +z.
    const KxHandle<SoSeparator> scene(new SoSeparator);
    scene->addChild(materialScene(SbColor(1.f, 0.f, 0.f), new SoSphere));
    auto* front = new SoSeparator;
    auto* shift = new SoTranslation;
    shift->translation = SbVec3f(0.f, 0.f, 2.f);
    front->addChild(shift);
    auto* small = new SoSphere;
    small->radius = 0.3f;
    front->addChild(materialScene(SbColor(0.f, 1.f, 0.f), small));
    scene->addChild(front);

    Renderer renderer(120, 120);
    auto greenish = [](QRgb p) { return qGreen(p) > 2 * qRed(p) && qGreen(p) > 60; };
    auto reddish = [](QRgb p) { return qRed(p) > 2 * qGreen(p) && qRed(p) > 60; };

    ASSERT_TRUE(renderer.renderViewAll(scene)); // default: looking down -z, from the green side
    EXPECT_TRUE(greenish(renderer.getImage().pixel(60, 60)));

    ASSERT_TRUE(renderer.renderViewAll(scene, SbVec3f(0.f, 0.f, 1.f))); // from behind
    EXPECT_TRUE(reddish(renderer.getImage().pixel(60, 60)));

    // Looking down -x with +y up puts +z on the left of the picture.
    renderer.setViewDirection(SbVec3f(-1.f, 0.f, 0.f));
    ASSERT_TRUE(renderer.renderViewAll(scene));
    const QImage side = renderer.getImage();
    int greenLeft = 0, greenRight = 0;
    for (int y = 0; y < 120; ++y)
        for (int x = 0; x < 120; ++x) (x < 60 ? greenLeft : greenRight) += greenish(side.pixel(x, y));
    EXPECT_GT(greenLeft, 20);
    EXPECT_EQ(greenRight, 0);

    // Looking straight down still gives a picture (no degenerate up vector).
    ASSERT_TRUE(renderer.renderViewAll(scene, SbVec3f(0.f, -1.f, 0.f)));
    EXPECT_TRUE(reddish(renderer.getImage().pixel(60, 60)));
}

TEST_F(SoOffscreenEGLRendererTest, RenderersKeepTheirOwnCachesAndRepeatExactly)
{
    const KxHandle<SoSeparator> scene(sphereScene(SoTriSurface::SHADED_OUTLINED));
    // Display lists from the second pass on, whatever the toolkit's heuristics would decide.
    scene->renderCaching = SoSeparator::ON;
    auto first = std::make_unique<Renderer>(64, 64);
    Renderer second(96, 80);

    // Render caches built for one context must never be replayed in the other.
    ASSERT_TRUE(first->renderViewAll(scene));
    const QImage once = first->getImage();
    for (int pass = 0; pass < 3; ++pass) {
        ASSERT_TRUE(second.renderViewAll(scene));
        EXPECT_NE(second.getImage().pixel(48, 40), kBackgroundPixel) << "pass " << pass;
        ASSERT_TRUE(first->renderViewAll(scene));
        EXPECT_EQ(first->getImage(), once) << "pass " << pass;
    }

    // A renderer made after another one is gone starts without the old context's caches.
    first.reset();
    Renderer third(64, 64);
    for (int pass = 0; pass < 2; ++pass) {
        ASSERT_TRUE(third.renderViewAll(scene));
        EXPECT_EQ(third.getImage(), once) << "pass " << pass;
    }
}

TEST_F(SoOffscreenEGLRendererTest, BadTrianglesAreSkippedWhenDrawing)
{
    const TestMesh mesh = makeIcosphere(2);
    SoTriSurface* clean = makeSurface(mesh);
    SoTriSurface* broken = makeSurface(mesh);
    // Extra triangles that point past the vertices and before the first one.
    broken->triangles.set1Value(mesh.numTriangles(), SbVec3i32(0, 1, 1 << 30));
    broken->triangles.set1Value(mesh.numTriangles() + 1, SbVec3i32(-7, 1, 2));
    const KxHandle<SoSeparator> cleanScene(materialScene(SbColor(0.5f, 0.5f, 0.9f), clean));
    const KxHandle<SoSeparator> brokenScene(materialScene(SbColor(0.5f, 0.5f, 0.9f), broken));

    SoOffscreenEGLRenderer renderer(64, 64);
    ASSERT_TRUE(renderer.renderViewAll(cleanScene));
    const QImage expected = renderer.getImage();
    ASSERT_TRUE(renderer.renderViewAll(brokenScene));
    EXPECT_EQ(renderer.getImage(), expected);
}

TEST_F(SoOffscreenEGLRendererTest, Text3IsDrawnWithRealFonts)
{
    auto textScene = [](const char* family) {
        auto* root = new SoSeparator;
        auto* font = new SoFont;
        font->name = family;
        font->size = 2.f;
        root->addChild(font);
        auto* text = new SoText3;
        text->string = "Iso 42";
        text->parts = SoText3::ALL;
        root->addChild(text);
        return materialScene(SbColor(1.f, 1.f, 0.f), root);
    };
    const KxHandle<SoSeparator> sans(textScene("DejaVu Sans"));
    const KxHandle<SoSeparator> serif(textScene("DejaVu Serif:Bold"));

    Renderer renderer(240, 120);
    ASSERT_TRUE(renderer.renderViewAll(sans)) << renderer.errorString().toStdString();
    const QImage sansImage = renderer.getImage();
    const int inked = 240 * 120 - countPixels(sansImage, kBackgroundPixel);
    EXPECT_GT(inked, 1500);
    EXPECT_LT(inked, 240 * 120 / 2);

    // The toolkit falls back to one built-in outline font when it cannot load font files, and then every
    // family looks the same.
    ASSERT_TRUE(renderer.renderViewAll(serif)) << renderer.errorString().toStdString();
    EXPECT_NE(renderer.getImage(), sansImage);
}

TEST_F(SoOffscreenEGLRendererTest, PngIsWrittenWholeOrNotAtAll)
{
    Renderer renderer(90, 70);
    const KxHandle<SoSeparator> scene(sphereScene(SoTriSurface::SHADED));

    QTemporaryDir dir;
    ASSERT_TRUE(dir.isValid());
    const QString path = dir.filePath("sphere.png");
    QString error;
    EXPECT_FALSE(renderer.writePNG(path, &error));
    EXPECT_EQ(error.toStdString(),
              "Cannot write the picture '" + path.toStdString() + "': nothing has been rendered");
    EXPECT_FALSE(QFile::exists(path));

    // An older file of the same name is replaced completely.
    {
        QFile old(path);
        ASSERT_TRUE(old.open(QIODevice::WriteOnly));
        old.write(QByteArray(100000, 'x'));
    }
    ASSERT_TRUE(renderer.renderViewAll(scene));
    ASSERT_TRUE(renderer.writePNG(path, &error)) << error.toStdString();
    QImage read(path, "png");
    ASSERT_FALSE(read.isNull());
    ASSERT_EQ(read.size(), QSize(90, 70));
    const QImage written = renderer.getImage();
    for (int y = 0; y < 70; ++y)
        for (int x = 0; x < 90; ++x) ASSERT_EQ(read.pixel(x, y), written.pixel(x, y)) << x << ", " << y;
    EXPECT_EQ(QDir(dir.path()).entryList(QDir::Files | QDir::Hidden), QStringList{"sphere.png"});

    // A directory that does not exist: an error naming the file, and nothing left behind.
    const QString missing = dir.filePath("no/such/dir/sphere.png");
    EXPECT_FALSE(renderer.writePNG(missing, &error));
    EXPECT_EQ(error, "cannot write " + missing + ": No such file or directory");
    EXPECT_EQ(QDir(dir.path()).entryList(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden),
              QStringList{"sphere.png"});
}

TEST_F(SoOffscreenEGLRendererTest, MisuseIsReportedNotCrashed)
{
    SoOffscreenEGLRenderer empty(0, 50);
    auto* sphere = new SoSphere;
    sphere->ref();
    EXPECT_FALSE(empty.render(sphere));
    EXPECT_EQ(empty.errorString().toStdString(), "Off-screen rendering: a 0 x 50 picture has no pixels");
    EXPECT_TRUE(empty.getImage().isNull());
    SoOffscreenEGLRenderer huge(40000, 10);
    EXPECT_FALSE(huge.render(sphere));
    EXPECT_TRUE(huge.errorString().startsWith(
        "Off-screen rendering: a 40000 x 10 picture exceeds the largest this OpenGL driver draws ("))
        << huge.errorString().toStdString();

    SoOffscreenEGLRenderer renderer(32, 32);
    EXPECT_FALSE(renderer.render(nullptr));
    EXPECT_EQ(renderer.errorString().toStdString(), "Off-screen rendering: there is no scene to draw");
    EXPECT_FALSE(renderer.renderViewAll(sphere, SbVec3f(0.f, 0.f, 0.f)));
    EXPECT_EQ(renderer.errorString().toStdString(),
              "Off-screen rendering: the view direction (0, 0, 0) has no length");
    EXPECT_TRUE(renderer.getImage().isNull());

    // A scene nobody holds survives the render and is still the caller's to free.
    auto* loose = new SoSphere;
    EXPECT_TRUE(renderer.render(loose));
    EXPECT_EQ(loose->getRefCount(), 0);
    loose->ref();
    loose->unref();
    sphere->unref();
}
