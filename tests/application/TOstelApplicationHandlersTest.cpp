#include "TOstelApplicationHandlers.h"

#include "ApplicationTest.h"

// The handlers are private; what they are made for is not seen through the application object.
struct TStateHandler {
    friend void HandleFor(TStateHandler, TOstelEventListener& listener);
};
struct TRemoteHandler {
    friend void HandleFor(TRemoteHandler, TOstelEventListener& listener);
};
template <typename TTag, typename THandler>
struct PrivateHandler {
    friend void HandleFor(TTag, TOstelEventListener& listener) {
        THandler handler(&listener);
        handler.HandleEvent("APP_CONNECTED", "{}");
    }
};
template struct PrivateHandler<TStateHandler, TOstelApplication::TAppStateChangeHandler>;
template struct PrivateHandler<TRemoteHandler, TOstelApplication::TRemoteDataModelChangeHandler>;

namespace {

struct TAppStateObserver : IOstelAppStateObserver {
    void OnAppStateChanged(TOstelAppState, const std::string&) override { ++told; }
    int told = 0;
};

class TOstelApplicationHandlers : public ApplicationTest {
protected:
    TOstelApplicationHandlers() { m_App.AddAppStateChangeObserver(&m_Observer); }
    ~TOstelApplicationHandlers() override { m_App.RemoveAppStateChangeObserver(&m_Observer); }

    TAppStateObserver m_Observer;
};

TEST_F(TOstelApplicationHandlers, HandEventsToTheApplicationObject) {
    HandleFor(TStateHandler(), m_App);
    EXPECT_EQ(m_Observer.told, 1);
    HandleFor(TRemoteHandler(), m_App);
    EXPECT_EQ(m_Observer.told, 1);
}

// While the application object ends, that is all that is left of it.
TEST_F(TOstelApplicationHandlers, DoNothingForAListenerThatIsNoApplicationObject) {
    TOstelEventListener listener;
    HandleFor(TStateHandler(), listener);
    HandleFor(TRemoteHandler(), listener);
    EXPECT_EQ(m_Observer.told, 0);
}

}  // namespace
