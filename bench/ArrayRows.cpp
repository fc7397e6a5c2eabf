// What arrays of parameters cost beside the bus: the answers come from memory.
#include <benchmark/benchmark.h>
#include <jansson.h>

#include <array>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "Application.h"
#include "Comparison.h"
#include "PrivateMember.h"
#include "Rows.h"

struct TIpcOfCommon {
    friend TOstelIpc* TOstelCommon::*MemberOf(TIpcOfCommon);
};
template struct PrivateMember<TIpcOfCommon, &TOstelCommon::m_Ipc>;

namespace {

using TParams = std::vector<TOstelApplication::TOstelAppParam>;
using TResults = std::vector<std::vector<std::pair<std::string, std::string>>>;

// Takes the place of the application object's bus as long as it lives.
class TAnswerFromMemory : public TOstelIpc {
public:
    explicit TAnswerFromMemory(std::string reply)
        : m_Reply(std::move(reply)), m_Before(std::exchange(Place(), this)) {}
    TAnswerFromMemory(const TAnswerFromMemory&) = delete;
    TAnswerFromMemory& operator=(const TAnswerFromMemory&) = delete;
    ~TAnswerFromMemory() override { Place() = m_Before; }

    int CallMethod(const std::string&, const std::string&, std::string& reply) override {
        reply = m_Reply;
        return 0;
    }
    int CallMethod(const std::string& name, const std::string& data, std::string& reply,
                   TMethodSettings&) override {
        return CallMethod(name, data, reply);
    }
    void SendEvent(const std::string&, const std::string&) override {}
    void MainLoop() override {}

    void SetReply(const std::string& reply) { m_Reply = reply; }

private:
    static TOstelIpc*& Place() {
        return TOstelApplication::GetInstance()->*MemberOf(TIpcOfCommon());
    }

    std::string m_Reply;
    TOstelIpc* m_Before;
};

std::string NameAt(int number) {
    return "Device.Hosts.Host." + std::to_string(number) + ".HostName";
}

TParams Params(int count) {
    TParams params(static_cast<std::size_t>(count));
    for (int i = 0; i < count; ++i) {
        params[static_cast<std::size_t>(i)] = {NameAt(i + 1), "laptop-" + std::to_string(i)};
    }
    return params;
}

std::string ReplyOf(const TParams& params) {
    std::string reply = R"({"PARAMS":[)";
    for (const auto& param : params) {
        reply += R"({"NAME":")" + param.name + R"(","VALUE":")" + param.value + R"("},)";
    }
    reply.back() = ']';
    return reply + "}";
}

// What nobody can save who reads this reply: its parsing, and a copy of each text.
void ParseAndCopy(const std::string& reply, TParams& params) {
    const std::unique_ptr<json_t, decltype(&json_decref)> document(
        json_loadb(reply.data(), reply.size(), 0, nullptr), &json_decref);
    const json_t* const array = json_object_get(document.get(), "PARAMS");
    params.resize(json_array_size(array));
    for (std::size_t i = 0; i < params.size(); ++i) {
        const json_t* const element = json_array_get(array, i);
        params[i].name = json_string_value(json_object_get(element, "NAME"));
        params[i].value = json_string_value(json_object_get(element, "VALUE"));
    }
}

using TNames = std::vector<std::string>;

TNames Plain(int count) {
    TNames names(static_cast<std::size_t>(count));
    for (int i = 0; i < count; ++i) {
        names[static_cast<std::size_t>(i)] = NameAt(i + 1);
    }
    return names;
}

// Each host's addresses.
TNames WithStars(int count) {
    TNames names(static_cast<std::size_t>(count));
    for (int i = 0; i < count; ++i) {
        names[static_cast<std::size_t>(i)] =
            "Device.Hosts.Host." + std::to_string(i + 1) + ".IPv4Address.*.IPAddress";
    }
    return names;
}

std::string ReplyTo(const TNames& names) {
    TParams params;
    params.reserve(names.size());
    for (std::string name : names) {
        const std::size_t star = name.find('*');
        if (star != std::string::npos) {
            name.replace(star, 1, "1");
        }
        params.push_back({name, "192.0.2.1"});
    }
    return ReplyOf(params);
}

void Grouped(benchmark::State& state, TNames (*make)(int count)) {
    constexpr int count = 4000;
    const TNames whole = make(count);
    const TNames half = make(count / 2);
    const std::string replyToWhole = ReplyTo(whole);
    const std::string replyToHalf = ReplyTo(half);
    TAnswerFromMemory answer("");
    TOstelApplication& application = *TOstelApplication::GetInstance();
    const auto ask = [&](const TNames& names, const std::string& reply) {
        answer.SetReply(reply);
        TResults results;
        Require(application.GetParamArray(names, results));
        if (results.back().size() != 1) {
            throw std::runtime_error("a parameter is not where it belongs");
        }
    };
    Compare(
        state, {"itself at 2,000", "us", AtMost(2.2), &CpuMicroseconds}, 1,
        [&] { ask(whole, replyToWhole); }, [&] { ask(half, replyToHalf); });
}

}  // namespace

void Array(benchmark::State& state) {
    TParams params = Params(static_cast<int>(state.range(0)));
    TParams copied = params;
    const std::string reply = ReplyOf(params);
    const TAnswerFromMemory answer(reply);
    TOstelApplication& application = *TOstelApplication::GetInstance();
    Compare(
        state, {"jansson parsing + copying", "us", AtMost(1.25), &CpuMicroseconds}, 1,
        [&] { Require(application.GetParamArray(params)); }, [&] { ParseAndCopy(reply, copied); });
}

// How much more a name costs among 100,000 than among 1,000. Both sides lose the processor's caches
// on the way.
void LinearArray(benchmark::State& state) {
    const std::array<int, 2> counts = {1000, 100000};
    std::array<std::vector<double>, 2> ours;
    std::array<std::vector<double>, 2> theirs;
    while (state.KeepRunning()) {
        for (std::size_t i = 0; i < counts.size(); ++i) {
            TParams params = Params(counts[i]);
            TParams copied = params;
            const std::string reply = ReplyOf(params);
            const TAnswerFromMemory answer(reply);
            TOstelApplication& application = *TOstelApplication::GetInstance();
            for (int run = 0; run < 100000 / counts[i]; run += 10) {
                ours[i].push_back(
                    CpuMicroseconds([&] { Require(application.GetParamArray(params)); }));
                theirs[i].push_back(CpuMicroseconds([&] { ParseAndCopy(reply, copied); }));
            }
        }
        state.SetIterationTime(ours.back().back() / 1e6);
    }
    const auto growthOf = [](const std::array<std::vector<double>, 2>& times) {
        return Median(times[1]) / Median(times[0]) / 100;
    };
    ReportRatio(state, {"jansson's from 1,000 to 100,000", "", AtMost(1.25)}, growthOf(ours),
                growthOf(theirs));
}

void GroupedNames(benchmark::State& state) {
    Grouped(state, &Plain);
}

void GroupedNamesWithStars(benchmark::State& state) {
    Grouped(state, &WithStars);
}
