// The slots, members and records that applications in the field were built with.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <string>
#include <vector>

#include "BinaryLayout.h"
#include "TOstelIpc.h"

namespace {

// Shows the places of its members.
class TShown : public TOstelIpc {
public:
    void SendEvent(const std::string&, const std::string&) override {}
    int CallMethod(const std::string&, const std::string&, std::string&) override { return 0; }
    int CallMethod(const std::string&, const std::string&, std::string&,
                   TMethodSettings&) override {
        return 0;
    }
    void MainLoop() override {}

    std::vector<const void*> Members() const {
        return {&m_Running,      &m_Monitor,  &m_Name,          &m_TimeoutMs,
                &m_Threads,      &m_Workers,  &m_ListenerMutex, &m_Listeners,
                &m_HandlerMutex, &m_Handlers, &m_ServerIds};
    }
};

TEST(TOstelIpcLayout, KeepsItsOperationsInOrder) {
    EXPECT_EQ(BinaryLayout::SlotOf(&IOstelIpcEventListener::OnEvent), 0U);
    EXPECT_EQ(BinaryLayout::SlotOf(&IOstelIpcMethodHandler::OnMethodCall), 0U);
    EXPECT_EQ(BinaryLayout::SlotOf(&TOstelIpc::OnEvent), 0U);
    // The destructor has slots 1 and 2.
    EXPECT_EQ(BinaryLayout::SlotOf(&TOstelIpc::Init), 3U);
    EXPECT_EQ(BinaryLayout::SlotOf(&TOstelIpc::Run), 4U);
    EXPECT_EQ(BinaryLayout::SlotOf(&TOstelIpc::AddEventLstener), 5U);
    EXPECT_EQ(BinaryLayout::SlotOf(&TOstelIpc::RemoveEventLstener), 6U);
    EXPECT_EQ(BinaryLayout::SlotOf(&TOstelIpc::AddMethodHandler), 7U);
    EXPECT_EQ(BinaryLayout::SlotOf(&TOstelIpc::RemoveMethodHandler), 8U);
    EXPECT_EQ(BinaryLayout::SlotOf(&TOstelIpc::SendEvent), 9U);
    using TShort = int (TOstelIpc::*)(const std::string&, const std::string&, std::string&);
    using TLong = int (TOstelIpc::*)(const std::string&, const std::string&, std::string&,
                                     TOstelIpc::TMethodSettings&);
    EXPECT_EQ(BinaryLayout::SlotOf(static_cast<TShort>(&TOstelIpc::CallMethod)), 10U);
    EXPECT_EQ(BinaryLayout::SlotOf(static_cast<TLong>(&TOstelIpc::CallMethod)), 11U);
    EXPECT_EQ(BinaryLayout::SlotOf(static_cast<TShort>(&TOstelIpc::OnMethodCall)), 12U);
    EXPECT_EQ(BinaryLayout::SlotOf(&TOstelIpc::Stop), 13U);
    EXPECT_EQ(BinaryLayout::SlotOf(&TOstelIpc::MainLoop), 14U);
}

TEST(TOstelIpcLayout, KeepsItsMembersInOrder) {
    const TShown ipc;
    const auto members = ipc.Members();
    EXPECT_TRUE(std::is_sorted(members.begin(), members.end()));
    // Two virtual tables come before the first member.
    EXPECT_EQ(static_cast<const char*>(members[0]) - reinterpret_cast<const char*>(&ipc),
              static_cast<std::ptrdiff_t>(2 * sizeof(void*)));
}

static_assert(sizeof(TOstelIpc::TOstelIpcSettings) == 12, "threads, timeout, monitor");
static_assert(offsetof(TOstelIpc::TOstelIpcSettings, timeout) == 4, "behind the threads");
static_assert(offsetof(TOstelIpc::TOstelIpcSettings, monitor) == 8, "behind the timeout");
static_assert(TOstelIpc::TMethodSettings::DEFAULT_TIMEOUT == 4294967295U, "all ones");
static_assert(offsetof(TOstelIpc::TMethodSettings, timeout) == sizeof(std::string),
              "behind the server id");

}  // namespace
