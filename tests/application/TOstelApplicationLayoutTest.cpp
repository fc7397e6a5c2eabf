// The binary interface of the application object and of its own observers.
#include <gtest/gtest.h>

#include "BinaryLayout.h"
#include "TOstelApplication.h"

using BinaryLayout::SlotOf;

struct TInitialized {
    friend std::size_t OffsetOf(TInitialized);
};
struct TLogger {
    friend std::size_t OffsetOf(TLogger);
};
struct TAppStateObservers {
    friend std::size_t OffsetOf(TAppStateObservers);
};
struct TRemoteObserverPlace {
    friend std::size_t OffsetOf(TRemoteObserverPlace);
};
struct TSerialNumber {
    friend std::size_t OffsetOf(TSerialNumber);
};
struct TCertificateDirectory {
    friend std::size_t OffsetOf(TCertificateDirectory);
};
struct TTlsContext {
    friend std::size_t OffsetOf(TTlsContext);
};

template struct MemberOffset<TInitialized, &TOstelApplication::m_Initialized>;
template struct MemberOffset<TLogger, &TOstelApplication::m_Logger>;
template struct MemberOffset<TAppStateObservers, &TOstelApplication::m_AppStateObservers>;
template struct MemberOffset<TRemoteObserverPlace, &TOstelApplication::m_RemoteObservers>;
template struct MemberOffset<TSerialNumber, &TOstelApplication::m_UnitSerialNumber>;
template struct MemberOffset<TCertificateDirectory, &TOstelApplication::m_CertificateDirectory>;
template struct MemberOffset<TTlsContext, &TOstelApplication::m_TlsContext>;

namespace {

TEST(TOstelApplicationLayout, IsAMethodHandlerFirstAndAnEventListenerBehindIt) {
    auto* const application = TOstelApplication::GetInstance();
    const auto* const start = reinterpret_cast<const char*>(application);
    EXPECT_EQ(reinterpret_cast<const char*>(static_cast<IOstelIpcMethodHandler*>(application)),
              start);
    EXPECT_EQ(reinterpret_cast<const char*>(static_cast<TOstelEventListener*>(application)),
              start + sizeof(void*));
    EXPECT_EQ(reinterpret_cast<const char*>(static_cast<IOstelIpcEventListener*>(application)),
              start + sizeof(void*));
}

TEST(TOstelApplicationLayout, KeepsTheSlotsOfItsCallbacks) {
    EXPECT_EQ(SlotOf(&IOstelIpcMethodHandler::OnMethodCall), 0U);
    EXPECT_EQ(SlotOf(&TOstelApplication::OnMethodCall), 0U);
    EXPECT_EQ(SlotOf(&IOstelAppStateObserver::OnAppStateChanged), 2U);
    EXPECT_EQ(SlotOf(&IOstelDataModelChangeObserverRemote::OnDataModelChangeRemote), 2U);
}

TEST(TOstelApplicationLayout, KeepsTheOrderOfItsMembers) {
    constexpr std::size_t word = sizeof(void*);
    const std::size_t start = word + sizeof(TOstelEventListener);
    const std::size_t tree = sizeof(std::set<IOstelAppStateObserver*>);
    EXPECT_EQ(OffsetOf(TInitialized()), start);
    EXPECT_EQ(OffsetOf(TLogger()), start + word);
    EXPECT_EQ(OffsetOf(TAppStateObservers()), start + 2 * word);
    EXPECT_EQ(OffsetOf(TRemoteObserverPlace()), start + 2 * word + tree);
    const std::size_t texts = start + 2 * word + 2 * tree;
    EXPECT_EQ(OffsetOf(TSerialNumber()), texts);
    EXPECT_EQ(OffsetOf(TCertificateDirectory()), texts + sizeof(std::string));
    EXPECT_EQ(OffsetOf(TTlsContext()), texts + 2 * sizeof(std::string));
    EXPECT_EQ(sizeof(TOstelApplication), texts + 2 * sizeof(std::string) + word);
}

#ifdef __i386__
TEST(TOstelApplicationLayout, HasTheDevicesOffsets) {
    EXPECT_EQ(OffsetOf(TInitialized()), 164U);
    EXPECT_EQ(OffsetOf(TAppStateObservers()), 172U);
    EXPECT_EQ(OffsetOf(TSerialNumber()), 220U);
    EXPECT_EQ(OffsetOf(TTlsContext()), 268U);
    static_assert(sizeof(TOstelApplication) == 272);
}
#endif

TEST(TOstelApplicationLayout, AParameterIsItsNameAndItsValue) {
    using TParam = TOstelApplication::TOstelAppParam;
    static_assert(offsetof(TParam, name) == 0);
    static_assert(offsetof(TParam, value) == sizeof(std::string));
    static_assert(sizeof(TParam) == 2 * sizeof(std::string));
    static_assert(IOstelAppStateObserver::APP_STATE_CONNECTED == 0);
    static_assert(IOstelAppStateObserver::APP_STATE_DISCONNECTED == 1);
}

}  // namespace
