// The development gateway's own work, without the bus.
#include <benchmark/benchmark.h>
#include <sqlite3.h>

#include <fstream>
#include <stdexcept>
#include <string>
#include <utility>

#include "Comparison.h"
#include "DataModel.h"
#include "DiskSyncs.h"
#include "Dispatcher.h"
#include "ModelLoader.h"
#include "Rows.h"
#include "Store.h"
#include "TempDir.h"

namespace {

std::string Group(int number) {
    return "Device.Group" + std::to_string(number) + ".";
}

// So many objects, each of so many parameters that can be written.
void WriteModel(const std::string& path, int groups, int parameters) {
    std::ofstream file(path);
    file << R"({"name":"bench","objects":[{"path":"Device.","parameters":[]})";
    for (int group = 1; group <= groups; ++group) {
        file << R"(,{"path":")" << Group(group) << R"(","parameters":[)";
        for (int i = 1; i <= parameters; ++i) {
            file << (i > 1 ? "," : "") << R"({"name":"Parameter)" << i
                 << R"(","type":"string","access":"readWrite","default":"a value"})";
        }
        file << "]}";
    }
    file << "]}";
}

TSchema Schema(const std::string& path) {
    TSchema schema;
    LoadModel(path, schema);
    return schema;
}

class TGateway {
public:
    TGateway(int groups, int parameters)
        : m_Model(MakeModel(groups, parameters)),
          m_Store(m_Dir.File("state.sqlite")),
          m_Dispatcher(m_Model, m_Store, [](const std::string&, const std::string&) {}) {}

    std::string Ask(const std::string& type, const std::string& request) {
        std::string reply;
        if (m_Dispatcher.OnMethodCall(type, request, reply) != 0) {
            throw std::runtime_error("the gateway refuses " + type);
        }
        return reply;
    }

    void Get(const std::string& name) {
        benchmark::DoNotOptimize(Ask("GET_PARAM", R"({"NAME":")" + name + R"("})"));
    }

    // The value is written to so many parameters and waits for a commit.
    void Stage(int count, const std::string& value) {
        std::string request = R"({"COMMIT":false,"PARAMS":[)";
        for (int i = 1; i <= count; ++i) {
            request += (i > 1 ? R"(,{"NAME":")" : R"({"NAME":")") + Group(1) + "Parameter" +
                       std::to_string(i) + R"(","VALUE":")" + value + R"("})";
        }
        Ask("SET_PARAM_ARRAY", request + "]}");
    }

    void Commit() { Ask("COMMIT", "{}"); }

private:
    TSchema MakeModel(int groups, int parameters) {
        WriteModel(m_Dir.File("model.json"), groups, parameters);
        return Schema(m_Dir.File("model.json"));
    }

    TempDir m_Dir;
    TDataModel m_Model;
    TStore m_Store;
    TDispatcher m_Dispatcher;
};

// What a commit cannot go below: the same rows in one durable transaction.
class TBareStore {
public:
    explicit TBareStore(const std::string& path) {
        sqlite3_open(path.c_str(), &m_Database);
        Execute(
            "PRAGMA locking_mode=EXCLUSIVE; PRAGMA synchronous=EXTRA; CREATE TABLE "
            "parameters(name TEXT PRIMARY KEY, value TEXT NOT NULL) WITHOUT ROWID");
    }
    TBareStore(const TBareStore&) = delete;
    TBareStore& operator=(const TBareStore&) = delete;
    ~TBareStore() { sqlite3_close(m_Database); }

    void Save(int count, const std::string& value) {
        Execute("BEGIN IMMEDIATE");
        sqlite3_stmt* statement = nullptr;
        sqlite3_prepare_v2(m_Database, "INSERT OR REPLACE INTO parameters VALUES(?, ?)", -1,
                           &statement, nullptr);
        for (int i = 1; i <= count; ++i) {
            const std::string name = Group(1) + "Parameter" + std::to_string(i);
            sqlite3_bind_text(statement, 1, name.c_str(), -1, nullptr);
            sqlite3_bind_text(statement, 2, value.c_str(), -1, nullptr);
            sqlite3_step(statement);
            sqlite3_reset(statement);
        }
        sqlite3_finalize(statement);
        Execute("COMMIT");
    }

private:
    void Execute(const char* sql) {
        if (sqlite3_exec(m_Database, sql, nullptr, nullptr, nullptr) != SQLITE_OK) {
            throw std::runtime_error(sqlite3_errmsg(m_Database));
        }
    }

    sqlite3* m_Database = nullptr;
};

struct TSize {
    int groups;
    int parameters;
};

// All parameters of the last group of each.
void ComparePaths(benchmark::State& state, TSize ours, TSize theirs, const char* against,
                  const TGoal& goal) {
    TGateway large(ours.groups, ours.parameters);
    TGateway small(theirs.groups, theirs.parameters);
    Compare(
        state, {against, "us", goal, &CpuMicroseconds}, 1, [&] { large.Get(Group(ours.groups)); },
        [&] { small.Get(Group(theirs.groups)); });
}

}  // namespace

// A tree of a hundred times the parameters, ten times as wide in both directions, may take
// log(100,000) / log(1,000) of the time.
void GatewayLookup(benchmark::State& state) {
    TGateway large(400, 250);
    TGateway small(40, 25);
    Compare(
        state, {"one of 1,000", "us", AtMost(1.67), &CpuMicroseconds}, 50,
        [&] { large.Get(Group(377) + "Parameter225"); },
        [&] { small.Get(Group(37) + "Parameter22"); });
}

// Ten times the output, and each of it may take log(5,000) / log(500) of the time.
void GatewayPartialPath(benchmark::State& state) {
    ComparePaths(state, {1, 5000}, {1, 500}, "partial path of 500", AtMost(13.7));
}

// The same output, out of twenty times as much: log(100,000) / log(5,000).
void GatewayPartialPathAmongMany(benchmark::State& state) {
    ComparePaths(state, {20, 5000}, {1, 5000}, "the same of 5,000", AtMost(1.35));
}

void GatewayCommit(benchmark::State& state) {
    constexpr int count = 1000;
    TGateway gateway(1, count);
    const TempDir dir;
    TBareStore bare(dir.File("bare.sqlite"));
    std::vector<double> ours;
    std::vector<double> theirs;
    int round = 0;
    while (state.KeepRunning()) {
        const std::string value = "value " + std::to_string(++round);
        gateway.Stage(count, value);
        ours.push_back(Microseconds([&] { gateway.Commit(); }));
        theirs.push_back(Microseconds([&] { bare.Save(count, value); }));
        state.SetIterationTime(ours.back() / 1e6);
    }
    ReportRatio(state, {"SQLite, one such transaction", "us", {}}, Median(ours), Median(theirs));
}

void GatewayCommitSyncs(benchmark::State& state) {
    constexpr int count = 1000;
    TGateway gateway(1, count);
    const auto syncsOf = [&](int writes, const std::string& value) {
        gateway.Stage(writes, value);
        const int before = DiskSyncs::Count();
        gateway.Commit();
        return DiskSyncs::Count() - before;
    };
    // The first commit of a file makes its journal.
    syncsOf(count, "first");
    while (state.KeepRunning()) {
        const int ofMany = syncsOf(count, "second");
        const int ofOne = syncsOf(1, "third");
        state.SetIterationTime(1e-3);
        ReportRatio(state, {"COMMIT of one write", "syncs", AtMost(1)}, ofMany, ofOne);
    }
}
