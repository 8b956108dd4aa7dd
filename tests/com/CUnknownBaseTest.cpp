#include "kpl/com/CUnknownBase.h"

#include <gtest/gtest.h>
#include <string.h>

#include "tests/support/VirtualSlot.h"

namespace kpl::com {
namespace {

using test::SlotOf;

// Tells when it is destroyed, and what counting does to it meanwhile.
class Watched : public CUnknownBase {
public:
    explicit Watched(int* destroyed) : m_destroyed(destroyed) {}
    ~Watched() override {
        ++*m_destroyed;
        EXPECT_EQ(AddRef(), 0U);
        EXPECT_EQ(Release(), 0U);
        EXPECT_EQ(AddRef(), 0U);
    }

private:
    int* m_destroyed;
};

// Has one more interface, which another object implements.
class Compound : public CUnknownBase {
public:
    Compound() : m_part(new CUnknownBase) {}
    ~Compound() override { m_part->Release(); }
    CUnknownBase* Part() const { return m_part; }

protected:
    bool FindInterface(const char* iid, void** ppv) override {
        if (strcmp(iid, "part") != 0) {
            return false;
        }
        *ppv = static_cast<IUnknown*>(m_part);
        return true;
    }

private:
    CUnknownBase* m_part;
};

// The protected slot, by its name.
struct Opened : CUnknownBase {
    static auto FindInterfaceSlot() { return &Opened::FindInterface; }
};

TEST(CUnknownBaseTest, ANewObjectHasOneReferenceAndReleaseDeletesIt) {
    int destroyed = 0;
    auto* object = new Watched(&destroyed);
    EXPECT_EQ(object->Release(), 0U);
    EXPECT_EQ(destroyed, 1);
}

TEST(CUnknownBaseTest, CountsReferencesAndDeletesWithTheLast) {
    int destroyed = 0;
    auto* object = new Watched(&destroyed);
    EXPECT_EQ(object->AddRef(), 2U);
    EXPECT_EQ(object->AddRef(), 3U);
    EXPECT_EQ(object->Release(), 2U);
    EXPECT_EQ(object->Release(), 1U);
    EXPECT_EQ(destroyed, 0);
    EXPECT_EQ(object->Release(), 0U);
    EXPECT_EQ(destroyed, 1);
}

TEST(CUnknownBaseTest, AnObjectWithACountOfZeroIsNotRevived) {
    // Looked at from the destructor, where the count is 0; see Watched.
    int destroyed = 0;
    (new Watched(&destroyed))->Release();
    EXPECT_EQ(destroyed, 1);
}

TEST(CUnknownBaseTest, QueryInterfaceOfAPlainObjectIsFalseAndLeavesThePointerUntouched) {
    auto* object = new CUnknownBase;
    int mark = 0;
    void* found = &mark;
    EXPECT_FALSE(object->QueryInterface("anything", &found));
    EXPECT_EQ(found, &mark);
    EXPECT_EQ(object->Release(), 0U);
}

TEST(CUnknownBaseTest, ASuccessfulQueryInterfaceAddsAReferenceToTheFoundInterface) {
    auto* object = new Compound;
    void* found = nullptr;
    ASSERT_TRUE(object->QueryInterface("part", &found));
    EXPECT_EQ(found, static_cast<IUnknown*>(object->Part()));
    EXPECT_EQ(static_cast<IUnknown*>(found)->AddRef(), 3U);  // its own, the query's, this one
    EXPECT_EQ(static_cast<IUnknown*>(found)->Release(), 2U);
    EXPECT_EQ(static_cast<IUnknown*>(found)->Release(), 1U);
    EXPECT_EQ(object->AddRef(), 2U);  // not the object's own count
    EXPECT_EQ(object->Release(), 1U);
    EXPECT_EQ(object->Release(), 0U);
}

TEST(CUnknownBaseTest, QueryInterfaceOfAnUnknownIdAddsNoReference) {
    auto* object = new Compound;
    void* found = nullptr;
    EXPECT_FALSE(object->QueryInterface("other", &found));
    EXPECT_EQ(found, nullptr);
    EXPECT_EQ(object->Part()->AddRef(), 2U);
    EXPECT_EQ(object->Part()->Release(), 1U);
    EXPECT_EQ(object->Release(), 0U);
}

TEST(CUnknownBaseTest, QueryInterfaceWithoutAPlaceForTheResultIsFalse) {
    auto* object = new Compound;
    EXPECT_FALSE(object->QueryInterface("part", nullptr));
    EXPECT_EQ(object->Release(), 0U);
}

TEST(CUnknownBaseTest, SlotsStandInTheirOrder) {
    EXPECT_EQ(SlotOf(&IUnknown::AddRef), 0);
    EXPECT_EQ(SlotOf(&IUnknown::Release), 1);
    EXPECT_EQ(SlotOf(&IUnknown::QueryInterface), 2);
    EXPECT_EQ(SlotOf(Opened::FindInterfaceSlot()), 5);  // behind the two destructors
}

}  // namespace
}  // namespace kpl::com
