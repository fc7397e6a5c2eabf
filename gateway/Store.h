#ifndef STORE_H
#define STORE_H

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "DataModel.h"

struct sqlite3;

// What was committed over the model files, in an SQLite file: values, and instances that were added
// or deleted. What Save has returned from is there after a crash of the process or the machine.
class TStore {
public:
    // Opens the file, or makes it with its directories. Throws std::runtime_error for a file that
    // is damaged, is not a state file, or is in use; such a file is left as it is.
    explicit TStore(const std::string& path);

    struct TState {
        // Instance paths, outer before inner; a deleted one stays on record so that its number is
        // not given again.
        std::vector<std::pair<std::string, bool>> instances;  // whether they are present
        TDataModel::TValues values;
    };

    TState Load() const;

    // All or nothing. Throws std::runtime_error.
    void Save(const TDataModel::TChanges& changes);

private:
    struct TCloser {
        void operator()(sqlite3* database) const;
    };

    void Write(const TDataModel::TChanges& changes);
    void Execute(const std::string& sql) const;
    [[noreturn]] void Fail() const;
    bool IsEmpty() const;
    void Check() const;

    std::string m_Path;
    std::unique_ptr<sqlite3, TCloser> m_Database;
};

#endif
