#ifndef STORE_H
#define STORE_H

#include <memory>
#include <string>

#include "DataModel.h"

struct sqlite3;

// The committed values that differ from the model file, in an SQLite file. What Save has returned
// from is there after a crash of the process or the machine.
class TStore {
public:
    // Opens the file, or makes it with its directories. Throws std::runtime_error for a file that
    // is damaged, is not a state file, or is in use; such a file is left as it is.
    explicit TStore(const std::string& path);

    TDataModel::TValues Load() const;

    // All or nothing. Throws std::runtime_error.
    void Save(const TDataModel::TValues& values);

private:
    struct TCloser {
        void operator()(sqlite3* database) const;
    };

    void Execute(const std::string& sql) const;
    [[noreturn]] void Fail() const;
    void Check() const;

    std::string m_Path;
    std::unique_ptr<sqlite3, TCloser> m_Database;
};

#endif
