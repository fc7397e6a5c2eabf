#ifndef APPLICATION_TEST_H
#define APPLICATION_TEST_H

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <string>

#include "PrivateBus.h"
#include "RecordingLog.h"
#include "ScriptedDispatcher.h"
#include "TOstelApplication.h"

// The process's application object as client OSTEL_KTA, and a dispatcher that does as it is told.
class ApplicationTest : public testing::Test {
protected:
    using TParam = TOstelApplication::TOstelAppParam;
    using TParams = std::vector<TParam>;
    using TManner = ScriptedDispatcher::TManner;

    ApplicationTest() {
        m_App.Initialize(OSTEL_KTA);
        RecordingLog::Clear();
    }

    // How long a request waits for its answer.
    static void SetTimeout(std::uint32_t seconds) {
        TOstelIpc::TOstelIpcSettings settings;
        settings.timeout = seconds;
        getOstelIpcInstance()->Configure(settings);
    }

    PrivateBus m_Bus;
    ScriptedDispatcher m_Dispatcher;
    TOstelApplication& m_App = *TOstelApplication::GetInstance();
};

MATCHER_P2(IsParam, name, value, "") {
    return arg.name == name && arg.value == value;
}

#endif
