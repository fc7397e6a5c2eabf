// The binary interface of the listener and of the observers: slots and offsets that applications
// were built against.
#include <gtest/gtest.h>

#include <cstring>

#include "BinaryLayout.h"
#include "TOstelDataMapper.h"
#include "TOstelEventListener.h"
#include "tOstelTypes.h"

using BinaryLayout::SlotOf;

struct TMutex {
    friend std::size_t OffsetOf(TMutex);
};
struct TFirstHandler {
    friend std::size_t OffsetOf(TFirstHandler);
};
struct TSecondHandler {
    friend std::size_t OffsetOf(TSecondHandler);
};
struct TThirdHandler {
    friend std::size_t OffsetOf(TThirdHandler);
};
struct THandlerTable {
    friend std::size_t OffsetOf(THandlerTable);
};
struct TGeneralObservers {
    friend std::size_t OffsetOf(TGeneralObservers);
};
struct TClientObservers {
    friend std::size_t OffsetOf(TClientObservers);
};
struct TDataModelObservers {
    friend std::size_t OffsetOf(TDataModelObservers);
};
struct TMapper {
    friend std::size_t OffsetOf(TMapper);
};
struct TIpc {
    friend std::size_t OffsetOf(TIpc);
};

template struct MemberOffset<TMapper, &TOstelCommon::m_DataMapper>;
template struct MemberOffset<TIpc, &TOstelCommon::m_Ipc>;
template struct MemberOffset<TMutex, &TOstelEventListener::m_ObserverMutex>;
template struct MemberOffset<TFirstHandler, &TOstelEventListener::m_EventHandler>;
template struct MemberOffset<TSecondHandler, &TOstelEventListener::m_CpeClientStateChangeHandler>;
template struct MemberOffset<TThirdHandler, &TOstelEventListener::m_DataModelChangeHandler>;
template struct MemberOffset<THandlerTable, &TOstelEventListener::m_EventHandlers>;
template struct MemberOffset<TGeneralObservers, &TOstelEventListener::m_Observers>;
template struct MemberOffset<TClientObservers, &TOstelEventListener::m_CpeClientStateObservers>;
template struct MemberOffset<TDataModelObservers, &TOstelEventListener::m_DataModelChangeObservers>;

namespace {

TEST(TOstelEventListenerLayout, KeepsTheOrderOfItsVirtualOperations) {
    using T = TOstelEventListener;
    // 1 and 2 are the destructor's.
    EXPECT_EQ(SlotOf(&T::OnEvent), 0U);
    EXPECT_EQ(SlotOf(&T::AddObserver), 3U);
    EXPECT_EQ(SlotOf(&T::RemoveObserver), 4U);
    EXPECT_EQ(SlotOf(&T::OnOstelEvent), 5U);
    EXPECT_EQ(SlotOf(&T::AddCpeClientStateObserver), 6U);
    EXPECT_EQ(SlotOf(&T::RemoveCpeClientStateObserver), 7U);
    EXPECT_EQ(SlotOf(&T::OnCpeClientStateChange), 8U);
    EXPECT_EQ(SlotOf(&T::AddDataModelChangeObserver), 9U);
    EXPECT_EQ(SlotOf(&T::RemoveDataModelChangeObserver), 10U);
    EXPECT_EQ(SlotOf(&T::OnDataModelChange), 11U);
    EXPECT_EQ(SlotOf(&T::NotifyObservers), 12U);
    EXPECT_EQ(SlotOf(&T::NotifyCpeClientStateObservers), 13U);
    EXPECT_EQ(SlotOf(&T::NotifyDataModelChangeObservers), 14U);
}

TEST(TOstelEventListenerLayout, CallbacksComeAfterTheDestructorInTheirInterfaces) {
    EXPECT_EQ(SlotOf(&TOstelEventListener::IEventHandler::HandleEvent), 2U);
    EXPECT_EQ(SlotOf(&IOstelObserver::OnEvent), 2U);
    EXPECT_EQ(SlotOf(&IOstelCpeClientStateObserver::OnCpeClientStateChanged), 2U);
    EXPECT_EQ(SlotOf(&IOstelDataModelChangeObserver::OnDataModelParamChanged), 2U);
}

TEST(TOstelEventListenerLayout, IsAnIpcListenerFirstAndACommonObjectBehindIt) {
    TOstelEventListener listener;
    const auto* const start = reinterpret_cast<const char*>(&listener);
    EXPECT_EQ(reinterpret_cast<const char*>(static_cast<IOstelIpcEventListener*>(&listener)),
              start);
    EXPECT_EQ(reinterpret_cast<const char*>(static_cast<TOstelCommon*>(&listener)),
              start + sizeof(void*));
}

TEST(TOstelEventListenerLayout, KeepsTheOrderOfItsMembers) {
    constexpr std::size_t word = sizeof(void*);
    EXPECT_EQ(OffsetOf(TMapper()), word);
    EXPECT_EQ(OffsetOf(TIpc()), 2 * word);
    EXPECT_EQ(OffsetOf(TMutex()), 4 * word);
    const std::size_t handlers = 4 * word + sizeof(std::mutex);
    EXPECT_EQ(OffsetOf(TFirstHandler()), handlers);
    EXPECT_EQ(OffsetOf(TSecondHandler()), handlers + 2 * word);
    EXPECT_EQ(OffsetOf(TThirdHandler()), handlers + 4 * word);
    const std::size_t table = handlers + 6 * word;
    const std::size_t set = sizeof(std::set<IOstelObserver*>);
    EXPECT_EQ(OffsetOf(THandlerTable()), table);
    EXPECT_EQ(OffsetOf(TGeneralObservers()), table + set);
    EXPECT_EQ(OffsetOf(TClientObservers()), table + 2 * set);
    EXPECT_EQ(OffsetOf(TDataModelObservers()), table + 3 * set);
    EXPECT_EQ(sizeof(TOstelEventListener), table + 4 * set);
}

// The pointer that an object holds at an offset.
const void* PointerAt(const TOstelCommon& object, std::size_t offset) {
    const void* pointer = nullptr;
    std::memcpy(&pointer, reinterpret_cast<const char*>(&object) + offset, sizeof(pointer));
    return pointer;
}

TEST(TOstelEventListenerLayout, WorksWithTheMapperAndTheIpcInstanceOfTheProcess) {
    const TOstelEventListener listener;
    EXPECT_EQ(PointerAt(listener, OffsetOf(TMapper())), TOstelDataMapper::GetInstance());
    EXPECT_EQ(PointerAt(listener, OffsetOf(TIpc())), getOstelIpcInstance());
}

#ifdef __i386__
TEST(TOstelEventListenerLayout, HasTheDevicesOffsets) {
    EXPECT_EQ(OffsetOf(TMutex()), 16U);
    EXPECT_EQ(OffsetOf(TFirstHandler()), 40U);
    EXPECT_EQ(OffsetOf(THandlerTable()), 64U);
    EXPECT_EQ(OffsetOf(TDataModelObservers()), 136U);
    static_assert(sizeof(TOstelEventListener) == 160);
    static_assert(sizeof(TOstelCommon) == 12);
}
#endif

TEST(TOstelEventListenerLayout, ClientStatesHaveTheValuesOfTheFlatInterface) {
    using T = IOstelCpeClientStateObserver;
    EXPECT_EQ(static_cast<int>(T::CONNECTED), CLIENT_DEVICE_CONNECTED);
    EXPECT_EQ(static_cast<int>(T::RECONNECTED), CLIENT_DEVICE_RECONNECTED);
    EXPECT_EQ(static_cast<int>(T::DISCONNECTED), CLIENT_DEVICE_DISCONNECTED);
    EXPECT_EQ(static_cast<int>(T::UNAUTH_ATTEMPT), CLIENT_DEVICE_UNAUTH_ATTEMPT);
    EXPECT_EQ(static_cast<int>(T::BLOCKED_ATTEMPT), CLIENT_DEVICE_BLOCKED_ATTEMPT);
}

}  // namespace
