#include "RemoteUnit.h"

#include "RemoteProtocol.h"

TRemoteUnit::TRemoteUnit(const TSettings& settings, const std::string& serialNumber,
                         TDispatcher& dispatcher, TOstelIpc& ipc)
    : m_Dispatcher(dispatcher),
      m_Context(settings.certificates),
      m_Files(settings.files),
      m_Subscriptions(serialNumber,
                      [this](const std::string& address, const std::string& text,
                             const TStopSignal& stop, TDeadline deadline) {
                          return SendRemoteEvent(m_Context, address, RemoteProtocol::CHANGE_EVENT,
                                                 text, stop, deadline);
                      }),
      m_Requests(
          dispatcher, m_Subscriptions, m_Files,
          [&ipc](const std::string& name, const std::string& data) { ipc.SendEvent(name, data); }),
      m_Service({settings.address}, m_Context,
                [this](const std::string& request, const std::string& peer) {
                    return m_Requests.Answer(request, peer);
                }) {
    m_Dispatcher.SetOnChange([this](const std::string& name, const std::string& value) {
        m_Subscriptions.OnChange(name, value);
    });
}

TRemoteUnit::~TRemoteUnit() {
    m_Dispatcher.SetOnChange(nullptr);
}
