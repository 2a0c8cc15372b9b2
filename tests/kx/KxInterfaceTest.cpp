#include <kx/KxHandle.h>
#include <kx/KxInterface.h>
#include <kx/KxTypedObject.h>

#include <gtest/gtest.h>

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

// A forwarding proxy has no record of its own; the cast must still tell it from other implementations.
template <class Owner>
class KxTestCoordinatesProxy : public KxTestCoordinates
{
public:
    explicit KxTestCoordinatesProxy(const Owner* o) : m_owner(o) {}
    int count() const override { return m_owner->count(); }

private:
    const Owner* m_owner;
};

struct Module
{
    int count() const { return 3; }
};

class OtherCoordinates : public KxTestCoordinates
{
public:
    int count() const override { return 0; }
};

} // namespace

TEST(KxInterface, CastsByDynamicTypeAndRecordsByName)
{
    Module m;
    KxHandle<KxTestCoordinatesProxy<Module>> proxy(new KxTestCoordinatesProxy<Module>(&m));
    const KxInterface* base = proxy.get();

    const KxTestCoordinates* c = kxinterface_cast<KxTestCoordinates>(base);
    ASSERT_NE(c, nullptr);
    EXPECT_EQ(c->count(), 3);
    EXPECT_NE((kxinterface_cast<KxTestCoordinatesProxy<Module>>(base)), nullptr);
    EXPECT_EQ(kxinterface_cast<OtherCoordinates>(base), nullptr);
    EXPECT_EQ(kxinterface_cast<KxTestNames>(base), nullptr);
    EXPECT_EQ(kxinterface_cast<KxTestNames>(static_cast<const KxInterface*>(nullptr)), nullptr);

    EXPECT_EQ(base->getInterfaceType(), KxTestCoordinates::getClassInterfaceType());
    EXPECT_TRUE(base->implements(KxInterface::getClassInterfaceType()));
    EXPECT_FALSE(base->implements(KxTestNames::getClassInterfaceType()));
    EXPECT_EQ(KxTypeInfo::fromName("KxTestCoordinates"), KxTestCoordinates::getClassInterfaceType());
    EXPECT_FALSE(KxTestCoordinates::getClassInterfaceType()->canCreate());
}

TEST(KxInterface, LastUnrefDeletes)
{
    Module m;
    g_deleted = false;
    auto* p = new KxTestCoordinatesProxy<Module>(&m);
    {
        KxHandle<KxTestCoordinatesProxy<Module>> a(p);
        KxHandle<KxTestCoordinatesProxy<Module>> b(a);
        EXPECT_EQ(p->getRefCount(), 2);
    }
    EXPECT_TRUE(g_deleted);

    // A factory may return a new interface at count 0 without destroying it.
    g_deleted = false;
    auto* q = new KxTestCoordinatesProxy<Module>(&m);
    q->ref();
    q->unrefNoDelete();
    EXPECT_FALSE(g_deleted);
    EXPECT_EQ(q->getRefCount(), 0);
    q->ref();
    q->unref();
    EXPECT_TRUE(g_deleted);
}

// A class may be a typed object and an interface at once.
namespace {
class KxTestObjectWithInterface : public KxTypedObject, public KxTestNames
{
    KX_HEADER(KxTestObjectWithInterface)
};
KX_SOURCE(KxTestObjectWithInterface, KxTypedObject)
} // namespace

TEST(KxInterface, ObjectOfferingAnInterfaceDirectly)
{
    KxTestObjectWithInterface o;
    KxInterface* i = static_cast<KxTestNames*>(&o);
    EXPECT_EQ(kxinterface_cast<KxTestNames>(i), static_cast<KxTestNames*>(&o));
    EXPECT_TRUE(o.isOfType<KxTestObjectWithInterface>());
    EXPECT_EQ(o.getInterfaceType(), KxTestNames::getClassInterfaceType());
}
