#include "TOstelObjectFactory.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <new>
#include <set>
#include <stdexcept>
#include <thread>
#include <vector>

#include "BinaryLayout.h"
#include "RecordingLog.h"
#include "RuntimeErrorOf.h"

namespace {

// The next request for memory on this thread fails.
thread_local bool isMemoryShort = false;

}  // namespace

// In the place of the standard library's, for the library under test, too.
void* operator new(std::size_t size) {
    if (isMemoryShort) {
        isMemoryShort = false;
        throw std::bad_alloc();
    }
    if (void* const memory = std::malloc(size == 0 ? 1 : size)) {
        return memory;
    }
    throw std::bad_alloc();
}
void operator delete(void* memory) noexcept {
    std::free(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
    std::free(memory);
}

struct TObjects {
    friend std::size_t OffsetOf(TObjects);
};
template struct MemberOffset<TObjects, &TOstelObjectFactory::m_Objects>;
struct TBuilder {
    friend std::size_t OffsetOf(TBuilder);
};
template struct MemberOffset<TBuilder, &TOstelObjectFactory::TSingletonObject::builder>;
struct TInstance {
    friend std::size_t OffsetOf(TInstance);
};
template struct MemberOffset<TInstance, &TOstelObjectFactory::TSingletonObject::instance>;

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

int destroyed = 0;

class Thing : public IOstelObject {
public:
    explicit Thing(int maker) : m_Maker(maker) {}
    Thing(const Thing&) = delete;
    Thing& operator=(const Thing&) = delete;
    ~Thing() override { ++destroyed; }

    int Maker() const { return m_Maker; }

private:
    int m_Maker;
};

// What is done when an object is asked for.
enum class TMood { WORKING, FAILING, LEAVING_NO_MEMORY };

class ThingBuilder : public TOstelObjectBuilder {
public:
    explicit ThingBuilder(const std::string& name, int maker = 1)
        : TOstelObjectBuilder(name), m_Maker(maker) {}

    IOstelObject* CreateObject() override {
        ++calls;
        if (mood == TMood::FAILING) {
            return nullptr;
        }
        auto* const thing = new Thing(m_Maker);
        isMemoryShort = mood == TMood::LEAVING_NO_MEMORY;
        return thing;
    }

    TMood mood = TMood::WORKING;
    int calls = 0;

private:
    int m_Maker;
};

TOstelObjectFactory& Factory() {
    return *TOstelObjectFactory::GetInstance();
}

int MakerOf(const IOstelObject* object) {
    return dynamic_cast<const Thing&>(*object).Maker();
}

// Outside of any function, as applications do.
ThingBuilder staticBuilder("static");

TEST(TOstelObjectFactory, KnowsABuilderSinceStaticInitialisation) {
    EXPECT_EQ(staticBuilder.calls, 0);
    EXPECT_NE(Factory().GetObjectInstance("static"), nullptr);
    EXPECT_EQ(staticBuilder.calls, 1);
    EXPECT_THAT(RecordingLog::Lines(), IsEmpty());
}

TEST(TOstelObjectFactory, SharesOneInstanceOfAName) {
    ThingBuilder builder("X");
    EXPECT_EQ(builder.calls, 0);
    IOstelObject* const first = Factory().GetObjectInstance("X");
    EXPECT_EQ(Factory().GetObjectInstance("X"), first);
    EXPECT_EQ(builder.calls, 1);
    EXPECT_EQ(destroyed, 0);
}

TEST(TOstelObjectFactory, MakesAFreshObjectEachTime) {
    ThingBuilder builder("X");
    IOstelObject* const shared = Factory().GetObjectInstance("X");
    const std::unique_ptr<IOstelObject> first(Factory().CreateObjectInstance("X"));
    const std::unique_ptr<IOstelObject> second(Factory().CreateObjectInstance("X"));
    EXPECT_EQ((std::set<IOstelObject*>{shared, first.get(), second.get()}.size()), 3U);
    EXPECT_EQ(Factory().GetObjectInstance("X"), shared);
    EXPECT_EQ(builder.calls, 3);
}

TEST(TOstelObjectFactory, DoesNotShareAFreshObject) {
    ThingBuilder builder("X");
    const std::unique_ptr<IOstelObject> fresh(Factory().CreateObjectInstance("X"));
    EXPECT_NE(Factory().GetObjectInstance("X"), fresh.get());
    EXPECT_EQ(builder.calls, 2);
}

TEST(TOstelObjectFactory, TriesAgainAfterAFailedCreation) {
    ThingBuilder builder("X");
    builder.mood = TMood::FAILING;
    const std::string error = "[TOstelObjectFactory] Can't create object type: X";
    EXPECT_EQ(RuntimeErrorOf([] { Factory().GetObjectInstance("X"); }), error);
    EXPECT_EQ(RuntimeErrorOf([] { Factory().GetObjectInstance("X"); }), error);
    EXPECT_EQ(builder.calls, 2);
    builder.mood = TMood::WORKING;
    EXPECT_EQ(RuntimeErrorOf([] { Factory().GetObjectInstance("X"); }), "nothing was thrown");
    EXPECT_EQ(builder.calls, 3);
    EXPECT_THAT(RecordingLog::Lines(), IsEmpty());
}

TEST(TOstelObjectFactory, MayReturnNoFreshObject) {
    ThingBuilder builder("X");
    builder.mood = TMood::FAILING;
    EXPECT_EQ(Factory().CreateObjectInstance("X"), nullptr);
}

TEST(TOstelObjectFactory, LogsASecondBuilderAndUsesItFromThenOn) {
    ThingBuilder first("X", 1);
    IOstelObject* const shared = Factory().GetObjectInstance("X");
    ThingBuilder second("X", 2);
    EXPECT_THAT(RecordingLog::Texts(3),
                ElementsAre("[TOstelObjectFactory] Builder object with name 'X' already exists!"));
    EXPECT_EQ(RecordingLog::Lines().size(), 1U);
    const std::unique_ptr<IOstelObject> fresh(Factory().CreateObjectInstance("X"));
    EXPECT_EQ(MakerOf(fresh.get()), 2);
    // Whoever holds it keeps it.
    EXPECT_EQ(Factory().GetObjectInstance("X"), shared);
    EXPECT_EQ(MakerOf(shared), 1);
    EXPECT_EQ(destroyed, 0);
}

TEST(TOstelObjectFactory, SharesTheSecondBuildersObjectWhenTheFirstMadeNone) {
    ThingBuilder first("X", 1);
    ThingBuilder second("X", 2);
    EXPECT_EQ(MakerOf(Factory().GetObjectInstance("X")), 2);
    EXPECT_EQ(first.calls, 0);
}

TEST(TOstelObjectFactory, LogsTheSameBuilderToo) {
    ThingBuilder builder("X");
    Factory().AddSingletonBuilder("X", builder);
    Factory().AddSingletonBuilder("Y", builder);
    EXPECT_EQ(RecordingLog::Lines().size(), 1U);
    EXPECT_NE(Factory().GetObjectInstance("X"), Factory().GetObjectInstance("Y"));
}

TEST(TOstelObjectFactory, ThrowsForANameThatIsNotRegistered) {
    const std::string error = "[TOstelObjectFactory] Can't find object type: ";
    EXPECT_EQ(RuntimeErrorOf([] { Factory().GetObjectInstance(""); }), error);
    EXPECT_EQ(RuntimeErrorOf([] { Factory().CreateObjectInstance(""); }), error);
    ThingBuilder builder("X");
    for (const char* const name : {"x", "X ", "XX", "%s"}) {
        EXPECT_EQ(RuntimeErrorOf([&] { Factory().GetObjectInstance(name); }), error + name);
        EXPECT_EQ(RuntimeErrorOf([&] { Factory().CreateObjectInstance(name); }), error + name);
    }
    EXPECT_EQ(builder.calls, 0);
    EXPECT_THAT(RecordingLog::Lines(), IsEmpty());
}

TEST(TOstelObjectFactory, TakesTheEmptyNameAndZeroBytesAsNames) {
    ThingBuilder nameless("", 1);
    ThingBuilder zero(std::string("\0", 1), 2);
    EXPECT_THAT(RecordingLog::Lines(), IsEmpty());
    EXPECT_EQ(MakerOf(Factory().GetObjectInstance("")), 1);
    EXPECT_EQ(MakerOf(Factory().GetObjectInstance(std::string("\0", 1))), 2);
}

TEST(TOstelObjectFactory, DestroysTheObjectThatItHasNoMemoryToShare) {
    ThingBuilder builder("X");
    builder.mood = TMood::LEAVING_NO_MEMORY;
    EXPECT_THROW(Factory().GetObjectInstance("X"), std::bad_alloc);
    EXPECT_EQ(destroyed, 1);
    builder.mood = TMood::WORKING;
    EXPECT_NE(Factory().GetObjectInstance("X"), nullptr);
    EXPECT_EQ(builder.calls, 2);
    EXPECT_EQ(destroyed, 1);
}

class Farewell : public IOstelObject {
public:
    Farewell() = default;
    Farewell(const Farewell&) = delete;
    Farewell& operator=(const Farewell&) = delete;
    ~Farewell() override { std::fputs("released\n", stderr); }
};

class FarewellBuilder : public TOstelObjectBuilder {
public:
    using TOstelObjectBuilder::TOstelObjectBuilder;
    IOstelObject* CreateObject() override { return new Farewell; }
};

TEST(TOstelObjectFactory, ReleasesWhatIsSharedAtExit) {
    EXPECT_EXIT(
        {
            FarewellBuilder first("first");
            FarewellBuilder second("second");
            FarewellBuilder neverAskedFor("third");
            Factory().GetObjectInstance("first");
            Factory().GetObjectInstance("second");
            std::exit(0);
        },
        testing::ExitedWithCode(0), "^released\nreleased\n$");
}

TEST(TOstelObjectFactory, IsOneForAllThreads) {
    std::vector<TOstelObjectFactory*> seen(8);
    std::vector<std::thread> threads;
    for (auto& factory : seen) {
        threads.emplace_back([&factory] { factory = TOstelObjectFactory::GetInstance(); });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_THAT(seen, testing::Each(&Factory()));
}

TEST(TOstelObjectFactory, KeepsItsBinaryInterface) {
    // 0 and 1 are the destructor's.
    EXPECT_EQ(BinaryLayout::SlotOf(&TOstelObjectBuilder::CreateObject), 2U);
    static_assert(std::has_virtual_destructor_v<TOstelObjectFactory>);
    static_assert(sizeof(IOstelObject) == sizeof(void*));
    static_assert(sizeof(TOstelObjectBuilder) == sizeof(void*));
    EXPECT_EQ(OffsetOf(TBuilder()), 0U);
    EXPECT_EQ(OffsetOf(TInstance()), sizeof(void*));
    EXPECT_EQ(OffsetOf(TObjects()), sizeof(void*));
    EXPECT_EQ(sizeof(TOstelObjectFactory), sizeof(void*) + sizeof(std::map<int, int>));
}

}  // namespace
