// Internal, not installed: what the application object does with the events that are its own.
#ifndef T_OSTEL_APPLICATION_HANDLERS_H
#define T_OSTEL_APPLICATION_HANDLERS_H

#include <string>

#include "TOstelApplication.h"

class TOstelApplication::TAppStateChangeHandler : public TOstelEventListener::IEventHandler {
public:
    explicit TAppStateChangeHandler(TOstelEventListener* listener) : m_Listener(listener) {}
    void HandleEvent(const std::string& name, const std::string& data) override;

private:
    TOstelEventListener* m_Listener;
};

class TOstelApplication::TRemoteDataModelChangeHandler : public TOstelEventListener::IEventHandler {
public:
    explicit TRemoteDataModelChangeHandler(TOstelEventListener* listener) : m_Listener(listener) {}
    void HandleEvent(const std::string& name, const std::string& data) override;

private:
    TOstelEventListener* m_Listener;
};

#endif
