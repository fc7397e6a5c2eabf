#include "Store.h"

#include <sqlite3.h>

#include <array>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <stdexcept>

namespace {

// In the file's header: whose file it is, and the version of its tables.
constexpr unsigned int APPLICATION_ID = 0x4F53544C;
constexpr unsigned int VERSION = 2;
constexpr std::size_t HEADER_SIZE = 100;
constexpr std::size_t VERSION_OFFSET = 60;
constexpr std::size_t APPLICATION_ID_OFFSET = 68;

class TStatement {
public:
    TStatement(sqlite3* database, const char* sql) {
        sqlite3_prepare_v2(database, sql, -1, &m_Statement, nullptr);
    }
    TStatement(const TStatement&) = delete;
    TStatement& operator=(const TStatement&) = delete;
    ~TStatement() { sqlite3_finalize(m_Statement); }

    void Bind(int position, const std::string& text) {
        sqlite3_bind_text64(m_Statement, position, text.data(), text.size(), SQLITE_STATIC,
                            SQLITE_UTF8);
    }

    int Step() { return m_Statement != nullptr ? sqlite3_step(m_Statement) : SQLITE_ERROR; }
    void Reset() { sqlite3_reset(m_Statement); }

    std::string Column(int position) const {
        const void* const text = sqlite3_column_blob(m_Statement, position);
        const auto size = static_cast<std::size_t>(sqlite3_column_bytes(m_Statement, position));
        return text != nullptr ? std::string(static_cast<const char*>(text), size) : std::string();
    }

private:
    sqlite3_stmt* m_Statement = nullptr;
};

unsigned int BigEndian(const std::array<char, HEADER_SIZE>& header, std::size_t offset) {
    unsigned int number = 0;
    for (std::size_t i = 0; i < 4; ++i) {
        number = number << 8U | static_cast<unsigned char>(header[offset + i]);
    }
    return number;
}

// Looks at the header before the database library does: what is not ours is not even opened.
void CheckHeader(const std::string& path) {
    std::array<char, HEADER_SIZE> header{};
    std::ifstream file(path, std::ios::binary);
    if (!file.read(header.data(), HEADER_SIZE) ||
        std::memcmp(header.data(), "SQLite format 3", 16) != 0 ||
        BigEndian(header, APPLICATION_ID_OFFSET) != APPLICATION_ID) {
        throw std::runtime_error(path + ": not a state file of the gateway");
    }
    if (BigEndian(header, VERSION_OFFSET) != VERSION) {
        throw std::runtime_error(path + ": made by another version of the gateway");
    }
}

}  // namespace

void TStore::TCloser::operator()(sqlite3* database) const {
    sqlite3_close(database);
}

TStore::TStore(const std::string& path) : m_Path(path) {
    const std::filesystem::path file(path);
    std::error_code error;
    if (file.has_parent_path()) {
        std::filesystem::create_directories(file.parent_path(), error);
    }
    const auto size = std::filesystem::file_size(file, error);
    if (error != std::errc::no_such_file_or_directory && (error || size > 0)) {
        CheckHeader(path);
    }
    sqlite3* database = nullptr;
    const int result = sqlite3_open_v2(path.c_str(), &database,
                                       SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, nullptr);
    m_Database.reset(database);
    if (result != SQLITE_OK) {
        Fail();
    }
    // One gateway a file; and a commit has reached the disk, the directory included, before it is
    // answered.
    Execute("PRAGMA locking_mode=EXCLUSIVE");
    Execute("PRAGMA synchronous=EXTRA");
    if (IsEmpty()) {
        Execute("BEGIN EXCLUSIVE; PRAGMA application_id=" + std::to_string(APPLICATION_ID) +
                "; PRAGMA user_version=" + std::to_string(VERSION) +
                "; CREATE TABLE parameters(name TEXT PRIMARY KEY, value TEXT NOT NULL) "
                "WITHOUT ROWID; CREATE TABLE instances(path TEXT PRIMARY KEY, present INTEGER NOT "
                "NULL) WITHOUT ROWID; COMMIT");
    }
    Check();
}

// Asked of the database, not of the file: what a first start that was killed has left in the file
// is taken back when the database is read.
bool TStore::IsEmpty() const {
    TStatement pages(m_Database.get(), "PRAGMA page_count");
    return pages.Step() == SQLITE_ROW && pages.Column(0) == "0";
}

void TStore::Check() const {
    TStatement check(m_Database.get(), "PRAGMA integrity_check(1)");
    const int result = check.Step();
    if (result != SQLITE_ROW || check.Column(0) != "ok") {
        throw std::runtime_error(
            m_Path + ": damaged: " +
            (result == SQLITE_ROW ? check.Column(0) : sqlite3_errmsg(m_Database.get())));
    }
    for (const char* const sql : {"SELECT name, value FROM parameters LIMIT 1",
                                  "SELECT path, present FROM instances LIMIT 1"}) {
        TStatement read(m_Database.get(), sql);
        const int first = read.Step();
        if (first != SQLITE_ROW && first != SQLITE_DONE) {
            throw std::runtime_error(m_Path + ": damaged: " + sqlite3_errmsg(m_Database.get()));
        }
    }
}

TStore::TState TStore::Load() const {
    TState state;
    TStatement values(m_Database.get(), "SELECT name, value FROM parameters");
    int result = values.Step();
    for (; result == SQLITE_ROW; result = values.Step()) {
        state.values.emplace_back(values.Column(0), values.Column(1));
    }
    if (result != SQLITE_DONE) {
        Fail();
    }
    TStatement instances(m_Database.get(), "SELECT path, present FROM instances ORDER BY path");
    result = instances.Step();
    for (; result == SQLITE_ROW; result = instances.Step()) {
        state.instances.emplace_back(instances.Column(0), instances.Column(1) == "1");
    }
    if (result != SQLITE_DONE) {
        Fail();
    }
    return state;
}

void TStore::Save(const TDataModel::TChanges& changes) {
    if (changes.Empty()) {
        return;
    }
    Execute("BEGIN IMMEDIATE");
    try {
        Write(changes);
        Execute("COMMIT");
    } catch (const std::runtime_error&) {
        // Some failures have ended the transaction already; then there is nothing to roll back.
        sqlite3_exec(m_Database.get(), "ROLLBACK", nullptr, nullptr, nullptr);
        throw;
    }
}

void TStore::Write(const TDataModel::TChanges& changes) {
    const auto run = [this](TStatement& statement) {
        if (statement.Step() != SQLITE_DONE) {
            Fail();
        }
        statement.Reset();
    };
    // What stood below a deleted instance is gone with it; its paths start with the instance's.
    TStatement dropValues(m_Database.get(),
                          "DELETE FROM parameters WHERE name >= ?1 AND name < ?2");
    TStatement dropInstances(m_Database.get(),
                             "DELETE FROM instances WHERE path >= ?1 AND path < ?2");
    TStatement gone(m_Database.get(), "INSERT OR REPLACE INTO instances VALUES(?1, 0)");
    for (const std::string& path : changes.deleted) {
        std::string end = path;
        ++end.back();
        for (TStatement* const drop : {&dropValues, &dropInstances}) {
            drop->Bind(1, path);
            drop->Bind(2, end);
            run(*drop);
        }
        gone.Bind(1, path);
        run(gone);
    }
    TStatement come(m_Database.get(), "INSERT OR REPLACE INTO instances VALUES(?1, 1)");
    for (const std::string& path : changes.added) {
        come.Bind(1, path);
        run(come);
    }
    TStatement write(m_Database.get(), "INSERT OR REPLACE INTO parameters VALUES(?1, ?2)");
    for (const auto& [name, value] : changes.writes) {
        write.Bind(1, name);
        write.Bind(2, value);
        run(write);
    }
}

void TStore::Execute(const std::string& sql) const {
    if (sqlite3_exec(m_Database.get(), sql.c_str(), nullptr, nullptr, nullptr) != SQLITE_OK) {
        Fail();
    }
}

void TStore::Fail() const {
    const bool isInUse = sqlite3_errcode(m_Database.get()) == SQLITE_BUSY;
    throw std::runtime_error(
        m_Path + ": " + (isInUse ? "in use by another gateway" : sqlite3_errmsg(m_Database.get())));
}
