// A gateway with a small model, without a bus, for fuzzing programs.
#ifndef FUZZ_GATEWAY_H
#define FUZZ_GATEWAY_H

#include <optional>
#include <string>
#include <utility>

#include "DataModel.h"
#include "Dispatcher.h"
#include "Fuzz.h"
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

// One of everything that a model can have. Made anew for most inputs, so it is not read from a
// file.
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

struct TGateway {
    TDataModel model = MakeModel();
    TStore store{":memory:"};
    TDispatcher dispatcher{model, store, [](const std::string&, const std::string&) {}};

    std::string Committed() const { return Values(model); }

    // As after a restart.
    std::string Restored() const {
        TDataModel fresh = MakeModel();
        const TStore::TState state = store.Load();
        for (const auto& [path, present] : state.instances) {
            Require(fresh.RestoreInstance(path, present), "a stored instance has its place");
        }
        for (const auto& [name, value] : state.values) {
            Require(fresh.RestoreValue(name, value), "a stored value has its place");
        }
        return Values(fresh);
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

private:
    static std::string Values(const TDataModel& model) {
        TDataModel::TValues values;
        Require(model.Get("Device.", values) == RC_SUCCESS, "the whole model can be read");
        std::string text;
        for (const auto& [name, value] : values) {
            text += name + "=" + value + "\n";
        }
        return text;
    }
};

}  // namespace Fuzz

#endif
