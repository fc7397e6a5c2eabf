// What is asked of every model file, whatever it is written in.
#ifndef FUZZ_MODEL_FILE_H
#define FUZZ_MODEL_FILE_H

#include <set>
#include <stdexcept>
#include <string>
#include <vector>

#include "DataModel.h"
#include "Fuzz.h"
#include "ModelLoader.h"

namespace Fuzz {

inline TDataModel::TValues AllValues(const TDataModel& model) {
    TDataModel::TValues values;
    const tOstelReturnCode code = model.Get("*.", values);
    Require(code == RC_SUCCESS || code == RC_BUFFER_OVERFLOW ||
                (code == RC_INVALID_PARAM_NAME && values.empty()),
            "the whole model can be read");
    return code == RC_SUCCESS ? values : TDataModel::TValues();
}

// More than fits into a reply cannot be read at once.
inline void RequireAll(const TDataModel& model, const TDataModel::TValues& all) {
    constexpr std::size_t few = 10000;
    Require(all.size() == model.Size() || (all.empty() && model.Size() > few),
            "all parameters are there");
}

// A parameter is found by its name, and takes what it has or tells why not. Of very many, some.
inline void WriteBack(TDataModel& model, const TDataModel::TValues& all) {
    constexpr std::size_t some = 1000;
    const std::size_t step = 1 + all.size() / some;
    for (std::size_t i = 0; i < all.size(); i += step) {
        const auto& [name, value] = all[i];
        TDataModel::TValues found;
        Require(model.Get(name, found) == RC_SUCCESS && found.size() == 1 &&
                    found[0].first == name && found[0].second == value,
                "a parameter is found by its name");
        const tOstelReturnCode code = model.Set({{name, value}});
        Require(code == RC_SUCCESS || code == RC_NOT_SUPPORTED || code == RC_INVALID_PARAM_VALUE,
                "a parameter takes its value or refuses it");
    }
    Require(model.Changes().Empty(), "a value written back is no change");
}

// The tables of the trees whose names the values start with.
inline void AddEverywhere(TDataModel& model, const TDataModel::TValues& all) {
    std::set<std::string> trees;
    for (const auto& value : all) {
        trees.insert(value.first.substr(0, value.first.find('.') + 1));
    }
    std::vector<std::string> names;
    for (const std::string& tree : trees) {
        const tOstelReturnCode code = model.GetTree(tree, names);
        Require(code == RC_SUCCESS || code == RC_BUFFER_OVERFLOW, "a tree can be listed");
    }
    for (const std::string& name : names) {
        unsigned int id = 0;
        std::vector<unsigned int> ids;
        if (model.GetInstances(name, ids) == RC_SUCCESS && model.Add(name, id) == RC_SUCCESS) {
            Require(ids.empty() || ids.back() < id, "a number is not given twice");
        }
    }
    model.Commit();
    RequireAll(model, AllValues(model));
}

// Throws nothing but what is documented, and a model that is taken can be used.
inline void ReadModelFile(const std::string& text) {
    static const TMemoryFile file;
    file.Write(text);
    try {
        TSchema schema;
        LoadModel(file.Path(), schema);
        TDataModel model(std::move(schema), 1);
        const TDataModel::TValues all = AllValues(model);
        RequireAll(model, all);
        WriteBack(model, all);
        AddEverywhere(model, all);
    } catch (const std::runtime_error& error) {
        Require(*error.what() != '\0', "a refusal has a cause");
    }
}

}  // namespace Fuzz

#endif
