#include <kx/KxTypedObject.h>

#include <gtest/gtest.h>

#include <thread>
#include <vector>

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

TEST(KxTypeInfo, ParentsAndIsOfType)
{
    TestDerived d;
    EXPECT_TRUE(d.isOfType(TestDerived::getClassTypeId()));
    EXPECT_TRUE(d.isOfType(TestBase::getClassTypeId()));
    EXPECT_TRUE(d.isOfType(KxTypedObject::getClassTypeId()));
    EXPECT_FALSE(d.isOfType(TestOther::getClassTypeId()));
    EXPECT_EQ(TestDerived::getClassTypeId()->getParent(), TestBase::getClassTypeId());
    EXPECT_EQ(kx_type_cast<TestBase>(static_cast<KxTypedObject*>(&d)), &d);
    EXPECT_EQ(kx_type_cast<TestOther>(static_cast<KxTypedObject*>(&d)), nullptr);
}

TEST(KxTypeInfo, RegistryByNameCreatesAndRemoves)
{
    const KxTypeInfo* t = TestDerived::getClassTypeId();
    EXPECT_EQ(KxTypeInfo::fromName("TestDerived"), t);
    KxTypedObject* o = t->createInstance();
    ASSERT_NE(o, nullptr);
    EXPECT_EQ(o->getTypeId(), t);
    delete o;
    EXPECT_EQ(KxTypeInfo::fromName("TestBase")->createInstance(), nullptr); // abstract

    (void)TestOther::getClassTypeId(); // records enter the registry on first use
    EXPECT_TRUE(KxTypeInfo::removeType("TestOther"));
    (void)TestOther::getClassTypeId(); // the record exists already: no second registration
    EXPECT_EQ(KxTypeInfo::fromName("TestOther"), nullptr);
    EXPECT_FALSE(KxTypeInfo::removeType("TestOther"));
}

TEST(KxTypeInfo, ConcurrentFirstCallsCreateOneRecord)
{
    class Racy : public KxTypedObject
    {
    public:
        static const KxTypeInfo* getClassTypeId()
        {
            static KxTypeInfo info("RacyType", nullptr, KxTypedObject::getClassTypeId());
            return &info;
        }
        const KxTypeInfo* getTypeId() const override { return getClassTypeId(); }
    };
    std::vector<const KxTypeInfo*> seen(8);
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; ++i) threads.emplace_back([&, i] { seen[std::size_t(i)] = Racy::getClassTypeId(); });
    for (auto& th : threads) th.join();
    for (auto* s : seen) EXPECT_EQ(s, seen[0]);
    EXPECT_EQ(KxTypeInfo::fromName("RacyType"), seen[0]);
}
