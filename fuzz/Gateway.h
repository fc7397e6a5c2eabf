// A gateway with a small model, without a bus, for fuzzing programs.
#ifndef FUZZ_GATEWAY_H
#define FUZZ_GATEWAY_H

#include <string>

#include "DataModel.h"
#include "Dispatcher.h"
#include "Fuzz.h"
#include "ModelLoader.h"
#include "Store.h"

namespace Fuzz {

// One of everything that a model can have.
inline const char* const MODEL = R"({"name": "fuzz", "objects": [
  {"path": "Device.", "parameters": [
    {"name": "Text", "type": "string", "access": "readWrite", "default": "a", "maxLength": 16},
    {"name": "Whole", "type": "int", "access": "readWrite", "default": "0", "minimum": -5,
     "maximum": 100},
    {"name": "Kind", "type": "string", "access": "readWrite", "default": "A",
     "enumeration": ["A", "B"]},
    {"name": "Fixed", "type": "boolean", "access": "readOnly", "default": "true"},
    {"name": "When", "type": "dateTime", "access": "readWrite", "default": "0001-01-01T00:00:00Z"},
    {"name": "RowNumberOfEntries", "type": "unsignedInt", "access": "readOnly", "default": "0"}]},
  {"path": "Device.Row.{i}.", "access": "readWrite", "maxEntries": 5,
   "entries": "RowNumberOfEntries", "uniqueKeys": [{"parameters": ["Name"]}],
   "parameters": [
    {"name": "Name", "type": "string", "access": "readWrite", "default": ""},
    {"name": "CellNumberOfEntries", "type": "unsignedInt", "access": "readOnly", "default": "0"}],
   "instances": [{"id": 1, "values": {"Name": "one"}}, {"id": 3, "values": {"Name": "three"}}],
   "indexMap": [{"app": 1, "platform": 7}]},
  {"path": "Device.Row.{i}.Cell.{i}.", "access": "readWrite", "entries": "CellNumberOfEntries",
   "parameters": [
    {"name": "Value", "type": "hexBinary", "access": "readWrite", "default": ""}],
   "instances": [{"id": 2, "parent": [3], "values": {}}]}]})";

inline TDataModel MakeModel() {
    static const TMemoryFile file;
    file.Write(MODEL);
    TSchema schema;
    LoadModel(file.Path(), schema);
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
