#ifndef DATA_MODEL_H
#define DATA_MODEL_H

#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "ObjectTree.h"
#include "Path.h"
#include "Schema.h"
#include "tOstelTypes.h"

// The typed tree of parameters: committed values and instances, and over them the writes, additions
// and deletions that wait for a commit. Reads see what is committed, writes what is staged.
// Not safe for concurrent use: the dispatcher holds a lock around it.
class TDataModel {
public:
    using TValues = std::vector<std::pair<std::string, std::string>>;

    // What a commit changes. The values of an added instance are its defaults and the writes to it.
    struct TChanges {
        TValues writes;
        std::vector<std::string> added;  // instance paths, outer before inner
        std::vector<std::string> deleted;

        bool Empty() const { return writes.empty() && added.empty() && deleted.empty(); }
    };

    // For each table: its path, and for each instance its number and the platform's.
    using TIndexMap =
        std::vector<std::pair<std::string, std::vector<std::pair<unsigned int, unsigned int>>>>;

    // The tree of this schema with its first instances, each table filled up to so many. Throws
    // std::runtime_error for an instance that cannot be.
    explicit TDataModel(TSchema schema, std::size_t fill = 0);

    // Puts back what was committed earlier; false when the model has no place for it any more.
    bool RestoreInstance(const std::string& path, bool present);
    bool RestoreValue(const std::string& name, const std::string& value);

    std::size_t Size() const;

    // Appends the committed values of a parameter, of everything below a partial path (which ends
    // in a point), or with "*" for path elements of all that match.
    tOstelReturnCode Get(const std::string& name, TValues& values) const;
    // The same of each name, up to the first that is wrong. All of it has to fit into one reply.
    tOstelReturnCode Get(const std::vector<std::string>& names, TValues& values) const;

    // Whether writes can be staged below the path.
    bool HasObject(const std::string& path) const;

    // Stages writes: all of them or, with a code, none.
    tOstelReturnCode Set(const TValues& writes);

    // The committed instances of a table.
    tOstelReturnCode GetInstances(const std::string& table, std::vector<unsigned int>& ids) const;

    // The names of all parameters below an object, and of the objects with a point at their end.
    tOstelReturnCode GetTree(const std::string& object, std::vector<std::string>& names) const;

    // Up to what fits into a reply.
    tOstelReturnCode GetIndexMap(TIndexMap& map) const;

    // Stage an instance's addition or deletion. A number is never given twice, by this object not
    // at all, and after a restart none that a commit has put on record.
    tOstelReturnCode Add(const std::string& table, unsigned int& id);
    tOstelReturnCode Delete(const std::string& instance);

    TChanges Changes() const;

    // Makes what is staged the committed state. The parameters that changed or came, with their
    // values, in the order of the tree.
    TValues Commit();

private:
    // Where a path leads to: an object, or a table when `object` is null.
    struct TNode {
        const TObjectDefinition* definition = nullptr;
        TObject* object = nullptr;
        TInstances* instances = nullptr;  // which the object is one of, or the table's own

        explicit operator bool() const { return definition != nullptr; }
        bool IsTable() const { return instances != nullptr && object == nullptr; }
        bool IsInstance() const {
            return instances != nullptr && object != nullptr && definition->isTable;
        }
    };

    // A parameter of an object.
    struct TPlace {
        const TObjectDefinition* definition = nullptr;
        TObject* object = nullptr;
        std::size_t index = 0;

        explicit operator bool() const { return object != nullptr; }
        const TParamDefinition& Definition() const { return definition->parameters[index]; }
        std::string& Value() const { return object->values[index]; }
    };

    TNode Place(const std::string& path);
    void Plant(const TSchema::TSeed& seed);
    static TNode Child(const TNode& parent, std::string_view name);
    static TNode Instance(const TNode& table, std::string_view element, TView view);
    TNode Find(const std::string& path, TView view) const;
    TPlace FindParameter(const std::string& name, TView view) const;
    tOstelReturnCode Check(const std::string& name, const std::string& value) const;
    bool KeysStayUnique(const std::string& name) const;
    std::vector<std::string> StagedKey(const std::string& path, const TNode& instance,
                                       const std::vector<std::string>& key) const;
    using TChanged = std::map<std::string, std::string, TPathLess>;
    void UpdateEntries(const std::string& tablePath, TChanged& changed);

    TSchema m_Schema;
    std::unique_ptr<TInstances> m_Root;  // the nameless object that holds "Device."
    std::map<std::string, std::string, TPathLess> m_Writes;
    std::set<std::string, TPathLess> m_Added;
    std::set<std::string, TPathLess> m_Deleted;
};

#endif
