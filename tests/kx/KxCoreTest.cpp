// The foundation's value types, type records, interfaces and message formatting.
#include <kx/KxBitfield.h>
#include <kx/KxBox3.h>
#include <kx/KxDArray.h>
#include <kx/KxHandle.h>
#include <kx/KxInterface.h>
#include <kx/KxPrimType.h>
#include <kx/KxSmallArray.h>
#include <kx/KxString.h>
#include <kx/KxTypedObject.h>

#include <clocale>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

TEST(KxArrays, CopiesAreDeepMovesEmptyRemovalIsStableReleaseHandsOverTheBlockAndSmallOnesSpill)
{
    KxDArray<int> a;
    for (int i = 0; i < 100; ++i) a.push_back(i);
    KxDArray<int> b(a);
    b[0] = 42;
    KxDArray<int> c(std::move(b));
    EXPECT_TRUE(b.empty());
    EXPECT_EQ(a[0] + c[0] + a[99], 42 + 99);
    a.resize(10);
    EXPECT_EQ(a.removeIf([](int v) { return v % 3 == 0; }), 4u);
    EXPECT_EQ(std::vector<int>(a.begin(), a.end()), (std::vector<int>{1, 2, 4, 5, 7, 8}));
    a.shrinkToFit();
    EXPECT_EQ(a.capacity(), 6u);
    int* block = a.release();
    EXPECT_TRUE(a.empty() && a.capacity() == 0);
    EXPECT_EQ(block[5], 8);
    kxfree(block);

    KxSmallArray<int, 4> s; // on the heap past four values, keeping them
    for (int i = 0; i < 10; ++i) s.push_back(i);
    s.resize(3);
    s.push_back(7);
    EXPECT_EQ(std::vector<int>(s.begin(), s.end()), (std::vector<int>{0, 1, 2, 7}));
}

TEST(KxBitfield, CountsFirstBitAndLabels)
{
    KxBitfield b(130, false);
    EXPECT_EQ(b.firstSetBit(), -1);
    b.set(129);
    b.set(64);
    EXPECT_TRUE(b.firstSetBit() == 64 && b.nUnsetBits() == 128u);
    b.unset(64);
    EXPECT_EQ(b.firstSetBit(), 129);
    EXPECT_EQ(KxBitfield(70, true).nUnsetBits(), 0u); // no stray bits past the end

    const unsigned char labels[] = {0, 3, 1, 3, 3};
    KxBitfield m;
    m.fromLabels(5, labels, 3);
    unsigned char out[] = {9, 9, 9, 9, 9};
    m.toLabels(5, out, 7, KxBitfield::KEEP_UNSET);
    EXPECT_EQ(std::vector<int>(out, out + 5), (std::vector<int>{9, 7, 9, 7, 7}));
    m.toLabels(5, out, 7, KxBitfield::OVERWRITE_UNSET);
    EXPECT_EQ(std::vector<int>(out, out + 5), (std::vector<int>{0, 7, 0, 7, 7}));
}

TEST(KxPrimType, CodesSizesAndNamesAndTheVoxelSizeOfOneNodeAxes)
{
    // The codes are those of saved data; the names those of messages and headers.
    std::string all;
    for (int code = 0; code < 12; ++code) {
        const KxPrimType t(code);
        if (!t.isValid()) continue;
        all += std::to_string(code) + ":" + t.name() + ":" + std::to_string(t.size()) + " ";
        EXPECT_EQ(int(KxPrimType::fromName(t.name())), code);
    }
    EXPECT_EQ(all, "0:uint8:1 1:int16:2 2:int32:4 3:float32:4 4:float64:8 7:uint16:2 8:uint32:4 9:int8:1 ");
    EXPECT_FALSE(KxPrimType::fromName("complex").isValid());
    EXPECT_EQ(KxBox3f(1, 3, -2, 2, 0, 0).getVoxelSize(KxDim3l(5, 3, 1)), KxVec3f(0.5f, 2.f, 0.f));
}

namespace {

class TestBase : public KxTypedObject
{
    KX_HEADER(TestBase)
};
class TestDerived : public TestBase
{
    KX_HEADER(TestDerived)
};
class TestOther : public KxTypedObject
{
    KX_HEADER(TestOther)
};
KX_ABSTRACT_SOURCE(TestBase, KxTypedObject)
KX_SOURCE(TestDerived, TestBase)
KX_SOURCE(TestOther, KxTypedObject)

} // namespace

TEST(KxTypeInfo, ParentsCastsAndTheRegistryByName)
{
    TestDerived d;
    EXPECT_TRUE(d.isOfType<TestBase>() && d.isOfType<KxTypedObject>() && !d.isOfType<TestOther>());
    KxTypedObject* base = &d;
    EXPECT_EQ(kx_type_cast<TestBase>(base), &d);
    EXPECT_EQ(kx_type_cast<TestOther>(base), nullptr);

    const std::unique_ptr<KxTypedObject> o(KxTypeInfo::fromName("TestDerived")->createInstance());
    EXPECT_EQ(o ? o->getTypeId() : nullptr, TestDerived::getClassTypeId());
    EXPECT_EQ(KxTypeInfo::fromName("TestBase")->createInstance(), nullptr); // abstract

    (void)TestOther::getClassTypeId(); // records enter the registry on first use
    EXPECT_TRUE(KxTypeInfo::removeType("TestOther"));
    (void)TestOther::getClassTypeId(); // the record exists already: no second registration
    EXPECT_EQ(KxTypeInfo::fromName("TestOther"), nullptr);
    EXPECT_FALSE(KxTypeInfo::removeType("TestOther"));
}

namespace {

bool g_deleted = false;

class KxTestCoordinates : public KxInterface
{
    KX_INTERFACE_HEADER(KxTestCoordinates)
public:
    ~KxTestCoordinates() override { g_deleted = true; }
    virtual int count() const = 0;
};
KX_INTERFACE_SOURCE(KxTestCoordinates, KxInterface)

class KxTestNames : public KxInterface
{
    KX_INTERFACE_HEADER(KxTestNames)
};
KX_INTERFACE_SOURCE(KxTestNames, KxInterface)

class Proxy : public KxTestCoordinates
{
public:
    int count() const override { return 3; }
};

} // namespace

// The casts are dynamic_cast; what is the foundation's own is the records and the reference count.
TEST(KxInterface, RecordsByNameAndCountsReferences)
{
    g_deleted = false;
    auto* p = new Proxy;
    {
        KxHandle<Proxy> proxy(p), other(proxy);
        other = nullptr;
        proxy = proxy; // self-assignment keeps the reference
        EXPECT_EQ(p->getRefCount(), 1);
        const KxInterface* base = p;
        EXPECT_EQ(kxinterface_cast<KxTestCoordinates>(base)->count(), 3);
        EXPECT_EQ(base->getInterfaceType(), KxTestCoordinates::getClassInterfaceType());
        EXPECT_TRUE(base->implements(KxInterface::getClassInterfaceType()));
        EXPECT_FALSE(base->implements(KxTestNames::getClassInterfaceType()));
        EXPECT_EQ(KxTypeInfo::fromName("KxTestCoordinates"), KxTestCoordinates::getClassInterfaceType());
        EXPECT_FALSE(KxTestCoordinates::getClassInterfaceType()->canCreate());
    }
    EXPECT_TRUE(g_deleted);

    // A factory may hand an object over at a count of zero without deleting it.
    g_deleted = false;
    auto* q = new Proxy;
    q->ref();
    q->unrefNoDelete();
    EXPECT_FALSE(g_deleted);
    EXPECT_EQ(q->getRefCount(), 0);
    q->ref();
    q->unref();
    EXPECT_TRUE(g_deleted);
}

TEST(KxString, FormatsLikePrintfAtAnyLength)
{
    EXPECT_EQ(KxString::printf("Isosurface contains %lu triangles (%2.2f%% less)", 12ul, 33.3333f),
              QString("Isosurface contains 12 triangles (33.33% less)"));
    EXPECT_EQ(KxString::printf("[%5d|%-4s|%03x|%*d|%zu]", -42, "ab", 10, 4, 7, std::size_t(9)),
              QString("[  -42|ab  |00a|   7|9]"));
    EXPECT_EQ(KxString::printf("%s", "Gr\u00f6\u00dfe"), QString::fromUtf8("Gr\u00f6\u00dfe"));
    const QString s = KxString::printf("<%s>%d", std::string(100000, 'x').c_str(), 5);
    EXPECT_TRUE(s.size() == 100003 && s.endsWith(">5"));
}

TEST(KxString, DecimalPointIgnoresTheLocale)
{
    // QCoreApplication installs the environment's locale; messages must read the same everywhere.
    const std::string old = std::setlocale(LC_NUMERIC, nullptr);
    const bool comma = std::setlocale(LC_NUMERIC, "de_DE.UTF-8") || std::setlocale(LC_NUMERIC, "fr_FR.UTF-8");
    EXPECT_EQ(KxString::printf("%.2f", 2.5), QString("2.50"));
    std::setlocale(LC_NUMERIC, old.c_str());
    if (!comma) GTEST_SKIP() << "no locale with a decimal comma installed; checked under the C locale only";
}
