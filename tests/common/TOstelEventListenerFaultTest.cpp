// The listener's construction when it cannot have what it needs.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <new>
#include <string>
#include <typeinfo>
#include <vector>

#include "Allocations.h"
#include "BinaryLayout.h"
#include "Emulated.h"
#include "RecordingLog.h"
#include "TOstelDataMapper.h"
#include "TOstelEventListener.h"

struct TRegistryPlace {
    friend std::size_t OffsetOf(TRegistryPlace);
};

template struct MemberOffset<TRegistryPlace, &TOstelDataMapper::m_Registry>;

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using TRegistry = std::map<std::string, TOstelDataMapper::IEnumMapping*, std::less<>>;

// While it lives, the mapper knows no other platform events than those of `mapping`.
class TOtherPlatformEvents {
public:
    explicit TOtherPlatformEvents(TOstelDataMapper::TEnumMapping<tOstelPltEventType>& mapping)
        : m_Entry(Registry().at(typeid(tOstelPltEventType).name())), m_Kept(m_Entry) {
        m_Entry = &mapping;
    }
    TOtherPlatformEvents(const TOtherPlatformEvents&) = delete;
    TOtherPlatformEvents& operator=(const TOtherPlatformEvents&) = delete;
    ~TOtherPlatformEvents() { m_Entry = m_Kept; }

private:
    static TRegistry& Registry() {
        void* const place =
            reinterpret_cast<char*>(TOstelDataMapper::GetInstance()) + OffsetOf(TRegistryPlace());
        return *static_cast<TRegistry*>(place);
    }

    TOstelDataMapper::IEnumMapping*& m_Entry;
    TOstelDataMapper::IEnumMapping* m_Kept;
};

struct TObserver : IOstelObserver, IOstelCpeClientStateObserver, IOstelDataModelChangeObserver {
    void OnEvent(const std::string& name, const std::string&) override { told.push_back(name); }
    void OnCpeClientStateChanged(TOstelCpeClientState state, const std::string&,
                                 const std::string&) override {
        told.push_back("state " + std::to_string(state));
    }
    void OnDataModelParamChanged(const std::string&, const std::string&) override {
        told.emplace_back("parameter");
    }
    std::vector<std::string> told;
};

TEST(TOstelEventListenerFault, AnEventWithoutANameEndsTheFillingButNotTheConstruction) {
    TOstelDataMapper::TEnumMapping<tOstelPltEventType> some{
        {EVENT_TYPE_SW_UPDATE_INSTALL_ATTEMPT, "EVENT_TYPE_SW_UPDATE_INSTALL_ATTEMPT"},
        {EVENT_TYPE_CLIENT_CONNECTED, "EVENT_TYPE_CLIENT_CONNECTED"},
        {EVENT_TYPE_CLIENT_RECONNECTED, "EVENT_TYPE_CLIENT_RECONNECTED"},
        {EVENT_TYPE_CLIENT_UNAUTH_ATTEMPT, "EVENT_TYPE_CLIENT_UNAUTH_ATTEMPT"},
        {EVENT_TYPE_PARAM_CHANGED, "EVENT_TYPE_PARAM_CHANGED"}};
    TObserver observer;
    const auto listener = [&some] {
        const TOtherPlatformEvents others(some);
        return std::make_unique<TOstelEventListener>();
    }();
    listener->AddObserver(&observer);
    listener->AddCpeClientStateObserver(&observer);
    listener->AddDataModelChangeObserver(&observer);
    EXPECT_THAT(RecordingLog::Texts(2),
                ElementsAre("[TOstelDataMapper] Can't find string for enum (tOstelPltEventType) "
                            "value: 2"));
    EXPECT_EQ(RecordingLog::Lines().front().format, "%s");
    for (const char* name : {"EVENT_TYPE_SW_UPDATE_INSTALL_ATTEMPT", "EVENT_TYPE_CLIENT_CONNECTED",
                             "EVENT_TYPE_CLIENT_RECONNECTED", "EVENT_TYPE_CLIENT_DISCONNECTED",
                             "EVENT_TYPE_CLIENT_UNAUTH_ATTEMPT", "EVENT_TYPE_PARAM_CHANGED"}) {
        listener->OnEvent(name, "{}");
    }
    EXPECT_THAT(observer.told,
                ElementsAre("EVENT_TYPE_SW_UPDATE_INSTALL_ATTEMPT", "state 0", "state 1"));
}

// The name is kept from its first use on, so that this takes a process of its own.
TEST(TOstelEventListenerFault, AnInstallAttemptThatHasNoNameYetIsDroppedAndTheNextOneIsTold) {
    SKIP_WHERE_EMULATED("cannot start this program again");
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const auto program = [] {
        TObserver observer;
        TOstelEventListener listener;
        listener.AddObserver(&observer);
        TOstelDataMapper::TEnumMapping<tOstelPltEventType> none{
            {EVENT_TYPE_CLIENT_CONNECTED, "EVENT_TYPE_CLIENT_CONNECTED"}};
        {
            const TOtherPlatformEvents others(none);
            listener.OnEvent("EVENT_TYPE_SW_UPDATE_INSTALL_ATTEMPT", "{}");
        }
        EXPECT_THAT(observer.told, IsEmpty());
        EXPECT_THAT(RecordingLog::Texts(2),
                    ElementsAre("[TOstelDataMapper] Can't find string for enum "
                                "(tOstelPltEventType) value: 6"));
        listener.OnEvent("EVENT_TYPE_SW_UPDATE_INSTALL_ATTEMPT", "{}");
        EXPECT_THAT(observer.told, ElementsAre("EVENT_TYPE_SW_UPDATE_INSTALL_ATTEMPT"));
        std::exit(testing::Test::HasFailure() ? 1 : 0);
    };
    EXPECT_EXIT(program(), testing::ExitedWithCode(0), "");
}

TEST(TOstelEventListenerFault, AConstructionWithoutMemoryThrowsAndLeavesNothing) {
    int failures = 0;
    for (bool isBuilt = false; !isBuilt;) {
        Allocations::FailOneAfter(static_cast<std::size_t>(failures));
        try {
            const TOstelEventListener listener;
            Allocations::GoOn();
            isBuilt = true;
        } catch (const std::bad_alloc&) {
            ++failures;
        }
    }
    // A name and a node of each of the seven events.
    EXPECT_GE(failures, 14);
    EXPECT_THAT(RecordingLog::Lines(), IsEmpty());
}

}  // namespace
