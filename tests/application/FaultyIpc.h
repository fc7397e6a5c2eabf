#ifndef FAULTY_IPC_H
#define FAULTY_IPC_H

#include <string>
#include <utility>

#include "TOstelApplication.h"

// The transport that the application object uses, for one of the test's own in its place.
using TIpcMember = TOstelIpc* TOstelCommon::*;
struct TIpcOfApplication {
    friend TIpcMember MemberOf(TIpcOfApplication);
};

// A transport that throws `Thrown` at each call and event.
template <typename Thrown>
class TFaultyIpc : public TOstelIpc {
public:
    explicit TFaultyIpc(Thrown thrown) : m_Thrown(std::move(thrown)) {}
    void SendEvent(const std::string&, const std::string&) override { throw Thrown(m_Thrown); }
    int CallMethod(const std::string&, const std::string&, std::string&) override {
        throw Thrown(m_Thrown);
    }
    int CallMethod(const std::string&, const std::string&, std::string&,
                   TMethodSettings&) override {
        throw Thrown(m_Thrown);
    }
    void MainLoop() override {}

private:
    const Thrown m_Thrown;
};

// Stands in for the application object's transport as long as it lives.
class TIpcInPlace {
public:
    explicit TIpcInPlace(TOstelIpc& ipc) : m_Real(std::exchange(Place(), &ipc)) {}
    TIpcInPlace(const TIpcInPlace&) = delete;
    TIpcInPlace& operator=(const TIpcInPlace&) = delete;
    ~TIpcInPlace() { Place() = m_Real; }

private:
    static TOstelIpc*& Place() {
        TOstelCommon& common = *TOstelApplication::GetInstance();
        return common.*MemberOf(TIpcOfApplication());
    }

    TOstelIpc* const m_Real;
};

#endif
