// A gateway with a small model, without a bus, for fuzzing programs.
#ifndef FUZZ_GATEWAY_H
#define FUZZ_GATEWAY_H

#include <sqlite3.h>

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "DataModel.h"
#include "Dispatcher.h"
#include "Fuzz.h"
#include "ObjectTree.h"
#include "Schema.h"
#include "Store.h"

namespace Fuzz {

inline TParamDefinition Parameter(const std::string& name, TBaseType base, bool writable,
                                  const std::string& defaultValue) {
    TParamDefinition definition;
    definition.name = name;
    definition.type.base = base;
    definition.writable = writable;
    definition.defaultValue = defaultValue;
    return definition;
}

inline TObjectDefinition& Table(TSchema& schema, const std::string& path,
                                const std::string& entries) {
    TObjectDefinition& table = schema.MakeObject(path);
    table.writable = true;
    table.entries = entries;
    return table;
}

// One of everything that a model can have.
inline TDataModel MakeModel() {
    TSchema schema;
    TObjectDefinition& device = schema.MakeObject("Device.");
    device.Define(Parameter("Text", TBaseType::STRING, true, "a"));
    device.parameters.back().type.sizes = {{std::nullopt, 16}};
    device.Define(Parameter("Whole", TBaseType::INT, true, "0"));
    device.parameters.back().type.ranges = {{-5, 100}};
    device.Define(Parameter("Kind", TBaseType::STRING, true, "A"));
    device.parameters.back().type.enumeration = {"A", "B"};
    device.Define(Parameter("Fixed", TBaseType::BOOLEAN, false, "true"));
    device.Define(Parameter("When", TBaseType::DATE_TIME, true, "0001-01-01T00:00:00Z"));
    device.Define(Parameter("RowNumberOfEntries", TBaseType::UNSIGNED_INT, false, "0"));
    TObjectDefinition& row = Table(schema, "Device.Row.{i}.", "RowNumberOfEntries");
    row.maxEntries = 5;
    row.uniqueKeys = {{"Name"}};
    row.indexMap = {{1, 7}};
    row.Define(Parameter("Name", TBaseType::STRING, true, ""));
    row.Define(Parameter("CellNumberOfEntries", TBaseType::UNSIGNED_INT, false, "0"));
    Table(schema, "Device.Row.{i}.Cell.{i}.", "CellNumberOfEntries")
        .Define(Parameter("Value", TBaseType::HEX_BINARY, true, ""));
    schema.Seeds() = {{"", "Device.Row.1.", {{"Name", "one"}}},
                      {"", "Device.Row.3.", {{"Name", "three"}}},
                      {"", "Device.Row.3.Cell.2.", {}}};
    return TDataModel(std::move(schema));
}

// All that requests change in a model.
struct TModelParts {
    TInstances& root;
    std::map<std::string, std::string, TPathLess>& writes;
    std::set<std::string, TPathLess>& added;
    std::set<std::string, TPathLess>& deleted;
};
TModelParts PartsOf(TDataModel& model);
sqlite3* DatabaseOf(TStore& store);

// What is private may be named where a template is instantiated, and nowhere else.
template <auto Root, auto Writes, auto Added, auto Deleted, auto Database>
struct TReach {
    friend TModelParts PartsOf(TDataModel& model) {
        return {*(model.*Root), model.*Writes, model.*Added, model.*Deleted};
    }
    friend sqlite3* DatabaseOf(TStore& store) { return (store.*Database).get(); }
};
template struct TReach<&TDataModel::m_Root, &TDataModel::m_Writes, &TDataModel::m_Added,
                       &TDataModel::m_Deleted, &TStore::m_Database>;

// The same for equal states, and for two that differ once in 2^64 times.
class TDigest {
public:
    TDigest& operator<<(std::uint64_t number) {
        constexpr std::uint64_t odd = 0x9E3779B97F4A7C15;
        m_Value = (m_Value ^ number) * odd;
        m_Value ^= m_Value >> 32U;
        return *this;
    }
    TDigest& operator<<(std::string_view text) {
        return *this << std::hash<std::string_view>()(text);
    }

    std::uint64_t Value() const { return m_Value; }

private:
    std::uint64_t m_Value = 1;
};

// What a gateway has come to. To compare two of them costs far less than to read the model.
struct TState {
    std::uint64_t committed = 0;  // what is read
    std::uint64_t whole = 0;      // all that later requests can depend on
    int stored = 0;               // rows that were written
    unsigned long events = 0;     // that were sent

    bool operator==(const TState& other) const {
        return committed == other.committed && whole == other.whole && stored == other.stored &&
               events == other.events;
    }
    bool operator!=(const TState& other) const { return !(*this == other); }
};

// Can be put back to its beginning, which costs far less than to make it.
class TGateway {
public:
    TGateway() : m_First(PartsOf(model).root), m_Begin(State()) {
        for (const char* const sql : {"DELETE FROM parameters", "DELETE FROM instances"}) {
            sqlite3_stmt* statement = nullptr;
            sqlite3_prepare_v2(DatabaseOf(store), sql, -1, &statement, nullptr);
            m_Wipes.emplace_back(statement, sqlite3_finalize);
        }
    }

    TDataModel model = MakeModel();
    TStore store{":memory:"};
    TDispatcher dispatcher{model, store,
                           [this](const std::string&, const std::string&) { ++m_Events; }};

    std::string Committed() const { return Values(model); }

    // As after a restart.
    std::string Restored() {
        PutBack(m_Restarted);
        const TStore::TState state = store.Load();
        for (const auto& [path, present] : state.instances) {
            Require(m_Restarted.RestoreInstance(path, present), "a stored instance has its place");
        }
        for (const auto& [name, value] : state.values) {
            Require(m_Restarted.RestoreValue(name, value), "a stored value has its place");
        }
        return Values(m_Restarted);
    }

    // What waits for a commit.
    std::string Staged() const {
        const TDataModel::TChanges changes = model.Changes();
        std::string text;
        for (const auto& [name, value] : changes.writes) {
            text += name + "=" + value + "\n";
        }
        for (const std::string& path : changes.added) {
            text += "+" + path + "\n";
        }
        for (const std::string& path : changes.deleted) {
            text += "-" + path + "\n";
        }
        return text;
    }

    TState State() {
        const TModelParts parts = PartsOf(model);
        TDigest committed;
        TDigest whole;
        Digest(parts.root, true, committed, whole);
        whole << parts.writes.size();
        for (const auto& [name, value] : parts.writes) {
            whole << name << value;
        }
        for (const auto* const paths : {&parts.added, &parts.deleted}) {
            whole << paths->size();
            for (const std::string& path : *paths) {
                whole << path;
            }
        }
        return {committed.Value(), whole.Value(), sqlite3_total_changes(DatabaseOf(store)),
                m_Events};
    }

    const TState& Begin() const { return m_Begin; }

    void Reset() {
        PutBack(model);
        for (const auto& wipe : m_Wipes) {
            Require(sqlite3_step(wipe.get()) == SQLITE_DONE && sqlite3_reset(wipe.get()) == 0,
                    "the store can be emptied");
        }
        m_Begin.stored = sqlite3_total_changes(DatabaseOf(store));
        m_Begin.events = m_Events;
        Require(State() == m_Begin, "the gateway is as it was at first");
    }

    // A statement that nobody ended would keep the database from being closed.
    bool HasOpenStatements() {
        std::size_t count = 0;
        sqlite3_stmt* statement = nullptr;
        while ((statement = sqlite3_next_stmt(DatabaseOf(store), statement)) != nullptr) {
            ++count;
        }
        return count != m_Wipes.size();
    }

private:
    using TStatement = std::unique_ptr<sqlite3_stmt, int (*)(sqlite3_stmt*)>;

    static std::string Values(const TDataModel& model) {
        TDataModel::TValues values;
        Require(model.Get("Device.", values) == RC_SUCCESS, "the whole model can be read");
        std::string text;
        for (const auto& [name, value] : values) {
            text += name + "=" + value + "\n";
        }
        return text;
    }

    static void Digest(const TInstances& instances, bool isCommitted, TDigest& committed,
                       TDigest& whole) {
        whole << instances.last << instances.objects.size();
        for (const auto& [number, object] : instances.objects) {
            const bool isVisible = isCommitted && object.IsVisible(TView::COMMITTED);
            whole << number << (object.added ? 1U : 0U) << (object.deleted ? 1U : 0U);
            if (isVisible) {
                committed << number;
            }
            for (const std::string& value : object.values) {
                whole << value;
                if (isVisible) {
                    committed << value;
                }
            }
            for (const TInstances& child : object.children) {
                Digest(child, isVisible, committed, whole);
            }
        }
        // Where a table ends, so that its last instance is not taken for one of the next.
        if (isCommitted) {
            committed << ~std::uint64_t{0};
        }
    }

    void PutBack(TDataModel& changed) const {
        const TModelParts parts = PartsOf(changed);
        parts.root = m_First;
        parts.writes.clear();
        parts.added.clear();
        parts.deleted.clear();
    }

    unsigned long m_Events = 0;
    TInstances m_First;
    TState m_Begin;
    TDataModel m_Restarted = MakeModel();
    std::vector<TStatement> m_Wipes;
};

}  // namespace Fuzz

#endif
