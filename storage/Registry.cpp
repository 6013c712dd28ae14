#include "storage/Registry.h"

#include <sqlite3.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>

#include "calendar/Common.h"
#include "platform/Files.h"

namespace vq {
namespace {

const char* HiveName(Hive hive) { return hive == Hive::CurrentUser ? "HKCU" : "HKLM"; }

constexpr const char* kSchema =
    "CREATE TABLE IF NOT EXISTS reg_values ("
    " hive TEXT NOT NULL, key TEXT NOT NULL COLLATE NOCASE, name TEXT NOT NULL COLLATE NOCASE,"
    " form INTEGER NOT NULL, data, PRIMARY KEY (hive, key, name))";

// A prepared statement that finalizes itself.
class Statement {
  public:
    Statement(sqlite3* db, const char* sql) { sqlite3_prepare_v2(db, sql, -1, &stmt_, nullptr); }
    ~Statement() { sqlite3_finalize(stmt_); }
    Statement(const Statement&) = delete;
    Statement& operator=(const Statement&) = delete;
    bool Ok() const { return stmt_ != nullptr; }
    sqlite3_stmt* Get() const { return stmt_; }
    void Bind(int index, const std::string& text) {
        sqlite3_bind_text(stmt_, index, text.data(), static_cast<int>(text.size()),
                          SQLITE_TRANSIENT);
    }

  private:
    sqlite3_stmt* stmt_ = nullptr;
};

std::string ColumnText(sqlite3_stmt* stmt, int column) {
    const auto* text = reinterpret_cast<const char*>(sqlite3_column_blob(stmt, column));
    return text ? std::string(text, static_cast<size_t>(sqlite3_column_bytes(stmt, column))) : "";
}

std::optional<RegValue> ValueOfRow(sqlite3_stmt* stmt, int formColumn) {
    const int form = sqlite3_column_int(stmt, formColumn);
    if (form == kFormText) return RegValue::Text(ColumnText(stmt, formColumn + 1));
    if (form == kFormInteger)
        return RegValue::Integer(static_cast<int32_t>(sqlite3_column_int64(stmt, formColumn + 1)));
    return std::nullopt;  // other forms count as missing
}

// The system's reason when there is one, else SQLite's.
std::string StoreError(sqlite3* db) {
    if (!db) return "out of memory";
    const int error = sqlite3_system_errno(db);
    return error ? ErrnoText(error) : sqlite3_errmsg(db);
}

}  // namespace

std::string RegValue::AsText() const {
    return form == kFormInteger ? std::to_string(number) : text;
}

int64_t RegValue::AsNumber() const { return form == kFormInteger ? number : Val(text); }

Registry::Registry(std::string databasePath, std::string autostartDir)
    : databasePath_(std::move(databasePath)), autostartDir_(std::move(autostartDir)) {}

Registry::~Registry() {
    sqlite3_finalize(readValue_);
    sqlite3_close(db_);
}

std::string Registry::UserConfigDir() {
    const char* xdg = std::getenv("XDG_CONFIG_HOME");
    if (xdg && *xdg) return xdg;
    const char* home = std::getenv("HOME");
    return std::string(home && *home ? home : ".") + "/.config";
}

std::string Registry::DefaultDatabasePath() {
    return UserConfigDir() + "/halvenor/orvantis-server/registry.db";
}

std::string Registry::DefaultAutostartDir() { return UserConfigDir() + "/autostart"; }

bool Registry::Open(bool create) {
    if (db_) return true;
    if (!create && !PathExists(databasePath_)) return false;
    if (create) {
        const std::string folder = databasePath_.substr(0, databasePath_.find_last_of('/'));
        if (!folder.empty() && !MakeFolders(folder, 0700)) {
            lastError_ = folder + ": " + ErrnoText(errno);
            return false;
        }
    }
    const int flags = SQLITE_OPEN_READWRITE | (create ? SQLITE_OPEN_CREATE : 0);
    if (sqlite3_open_v2(databasePath_.c_str(), &db_, flags, nullptr) != SQLITE_OK ||
        sqlite3_busy_timeout(db_, 5000) != SQLITE_OK ||
        sqlite3_exec(db_, kSchema, nullptr, nullptr, nullptr) != SQLITE_OK) {
        lastError_ = databasePath_ + ": " + StoreError(db_);
        sqlite3_close(db_);
        db_ = nullptr;
        return false;
    }
    return true;
}

bool Registry::IsRunKey(Hive hive, const std::string& keyPath) const {
    return hive == Hive::CurrentUser && ToUpper(keyPath) == ToUpper(kRunKey);
}

std::string Registry::AutostartFile() const { return autostartDir_ + "/orvantis-server.desktop"; }

Registry::ReadMemo::ReadMemo(Registry& reg) : reg_(reg), owner_(!reg.memo_) {
    if (owner_) reg_.memo_.emplace();
}

Registry::ReadMemo::~ReadMemo() {
    if (owner_) reg_.memo_.reset();
}

std::optional<RegValue> Registry::Read(Hive hive, const std::string& keyPath,
                                       const std::string& name) {
    if (!memo_) return ReadStore(hive, keyPath, name);
    const std::string key = std::string(HiveName(hive)) + '\n' + ToUpper(keyPath) + '\n' + ToUpper(name);
    const auto known = memo_->find(key);
    if (known != memo_->end()) return known->second;
    return memo_->emplace(key, ReadStore(hive, keyPath, name)).first->second;
}

std::optional<RegValue> Registry::ReadStore(Hive hive, const std::string& keyPath,
                                            const std::string& name) {
    if (IsRunKey(hive, keyPath)) {
        std::string content;
        if (ToUpper(name) != ToUpper(kRunValueName) || !ReadWholeFile(AutostartFile(), content))
            return std::nullopt;
        const size_t exec = content.find("\nExec=");
        if (exec == std::string::npos) return std::nullopt;
        const size_t end = content.find('\n', exec + 1);
        return RegValue::Text(
            content.substr(exec + 6, end == std::string::npos ? end : end - exec - 6));
    }
    if (!Open(false)) return std::nullopt;
    if (!readValue_ &&
        sqlite3_prepare_v2(db_, "SELECT form, data FROM reg_values WHERE hive=? AND key=? AND name=?",
                           -1, &readValue_, nullptr) != SQLITE_OK)
        return std::nullopt;
    sqlite3_bind_text(readValue_, 1, HiveName(hive), -1, SQLITE_STATIC);
    sqlite3_bind_text(readValue_, 2, keyPath.data(), static_cast<int>(keyPath.size()), SQLITE_STATIC);
    sqlite3_bind_text(readValue_, 3, name.data(), static_cast<int>(name.size()), SQLITE_STATIC);
    std::optional<RegValue> value;
    if (sqlite3_step(readValue_) == SQLITE_ROW) value = ValueOfRow(readValue_, 0);
    // Reset at once: a statement left stepping holds the read lock against other writers.
    sqlite3_reset(readValue_);
    sqlite3_clear_bindings(readValue_);
    return value;
}

int Registry::Write(Hive hive, const std::string& keyPath, const std::string& name,
                    const RegValue& value) {
    if (memo_) memo_->clear();
    if (IsRunKey(hive, keyPath)) {
        if (ToUpper(name) != ToUpper(kRunValueName)) return 2;
        const std::string entry =
            "[Desktop Entry]\nType=Application\nName=Orvantis Personal Server\n"
            "Comment=Starts the Orvantis Personal Server at logon\nExec=" +
            value.AsText() + "\nTerminal=false\nX-GNOME-Autostart-enabled=true\n";
        if (!MakeFolders(autostartDir_, 0700) ||
            !WriteFileAtomic(AutostartFile(), entry, &lastError_))
            return 5;
        return 0;
    }
    if (!Open(true)) return 5;
    Statement stmt(
        db_, "INSERT OR REPLACE INTO reg_values (hive, key, name, form, data) VALUES (?,?,?,?,?)");
    if (!stmt.Ok()) {
        lastError_ = sqlite3_errmsg(db_);
        return 5;
    }
    stmt.Bind(1, HiveName(hive));
    stmt.Bind(2, keyPath);
    stmt.Bind(3, name);
    sqlite3_bind_int(stmt.Get(), 4, value.form);
    if (value.form == kFormInteger)
        sqlite3_bind_int64(stmt.Get(), 5, value.number);
    else
        stmt.Bind(5, value.text);
    if (sqlite3_step(stmt.Get()) != SQLITE_DONE) {
        lastError_ = sqlite3_errmsg(db_);
        return 5;
    }
    return 0;
}

int Registry::Delete(Hive hive, const std::string& keyPath, const std::string& name) {
    if (memo_) memo_->clear();
    if (IsRunKey(hive, keyPath)) {
        if (ToUpper(name) != ToUpper(kRunValueName)) return 0;
        return (::unlink(AutostartFile().c_str()) == 0 || errno == ENOENT) ? 0 : 5;
    }
    if (!Open(false)) return 0;
    Statement stmt(db_, "DELETE FROM reg_values WHERE hive=? AND key=? AND name=?");
    if (!stmt.Ok()) return 5;
    stmt.Bind(1, HiveName(hive));
    stmt.Bind(2, keyPath);
    stmt.Bind(3, name);
    return sqlite3_step(stmt.Get()) == SQLITE_DONE ? 0 : 5;
}

std::vector<RegEntry> Registry::List(Hive hive, const std::string& keyPath) {
    std::vector<RegEntry> entries;
    if (IsRunKey(hive, keyPath)) {
        if (auto value = Read(hive, keyPath, kRunValueName))
            entries.push_back({kRunValueName, *value});
        return entries;
    }
    if (!Open(false)) return entries;
    Statement stmt(db_,
                   "SELECT name, form, data FROM reg_values WHERE hive=? AND key=? ORDER BY name");
    if (!stmt.Ok()) return entries;
    stmt.Bind(1, HiveName(hive));
    stmt.Bind(2, keyPath);
    while (sqlite3_step(stmt.Get()) == SQLITE_ROW)
        if (auto value = ValueOfRow(stmt.Get(), 1))
            entries.push_back({ColumnText(stmt.Get(), 0), *value});
    return entries;
}

void Registry::NoticeOnce(const std::string& text) {
    if (noticed_.count(text) || !noticeSink_) return;
    if (noticeSink_(text)) noticed_.insert(text);
}

std::vector<std::string> Registry::Keys(Hive hive) {
    std::vector<std::string> keys;
    if (!Open(false)) return keys;
    Statement stmt(db_, "SELECT DISTINCT key FROM reg_values WHERE hive=? ORDER BY key");
    if (!stmt.Ok()) return keys;
    stmt.Bind(1, HiveName(hive));
    while (sqlite3_step(stmt.Get()) == SQLITE_ROW) keys.push_back(ColumnText(stmt.Get(), 0));
    return keys;
}

}  // namespace vq
