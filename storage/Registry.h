#pragma once
// The settings store: a SQLite database of values under hives and key paths, as the registry
// holds them. One value is a text (form 1) or a signed 32-bit integer (form 4). The current
// user's Run key is the XDG autostart folder: its values are desktop entry files.
#include <cstdint>
#include <functional>
#include <optional>
#include <set>
#include <string>
#include <unordered_map>
#include <vector>

struct sqlite3;
struct sqlite3_stmt;

namespace vq {

enum class Hive { CurrentUser, LocalMachine };

constexpr int kFormText = 1;     // REG_SZ
constexpr int kFormInteger = 4;  // REG_DWORD

struct RegValue {
    int form = kFormText;
    std::string text;
    int32_t number = 0;

    static RegValue Text(std::string value) { return {kFormText, std::move(value), 0}; }
    static RegValue Integer(int32_t value) { return {kFormInteger, {}, value}; }
    // The value as text, an integer in its decimal form.
    std::string AsText() const;
    // The value as a number, a text by its leading number.
    int64_t AsNumber() const;
};

struct RegEntry {
    std::string name;
    RegValue value;
};

class Registry {
public:
    // `databasePath` is registry.db; `autostartDir` holds the start-at-logon entry.
    Registry(std::string databasePath, std::string autostartDir);
    ~Registry();
    Registry(const Registry&) = delete;
    Registry& operator=(const Registry&) = delete;

    // The store of this user: $XDG_CONFIG_HOME (or ~/.config)/halvenor/orvantis-server/registry.db
    // and $XDG_CONFIG_HOME/autostart.
    static std::string UserConfigDir();
    static std::string DefaultDatabasePath();
    static std::string DefaultAutostartDir();

    const std::string& DatabasePath() const { return databasePath_; }
    const std::string& AutostartDir() const { return autostartDir_; }

    // The value, or nothing when it, its key or the store is missing or of another form.
    // Reading creates nothing.
    std::optional<RegValue> Read(Hive hive, const std::string& keyPath, const std::string& name);
    // 0 for success, else a non-zero status; each write is its own transaction.
    int Write(Hive hive, const std::string& keyPath, const std::string& name,
              const RegValue& value);
    // 0 when the value is gone (also when it was not there), else a non-zero status.
    int Delete(Hive hive, const std::string& keyPath, const std::string& name);
    // Every value of one key, in name order.
    std::vector<RegEntry> List(Hive hive, const std::string& keyPath);
    // Every key path of a hive that holds values.
    std::vector<std::string> Keys(Hive hive);

    // Where readers of settings report a stored value that they can't use (the server log);
    // the sink answers false when the report could not be made.
    using NoticeSink = std::function<bool(const std::string&)>;
    void SetNoticeSink(NoticeSink sink) { noticeSink_ = std::move(sink); }
    // Passes `text` to the sink once for the life of this object, again only after a failure.
    void NoticeOnce(const std::string& text);

    // While one is open, a value once read is read again from memory until this object
    // writes or deletes a value: a tick of the server is one moment of use of its settings,
    // and a read of the store costs a lock of its file. A memo opened inside another joins it.
    class ReadMemo {
      public:
        explicit ReadMemo(Registry& reg);
        ~ReadMemo();
        ReadMemo(const ReadMemo&) = delete;
        ReadMemo& operator=(const ReadMemo&) = delete;

      private:
        Registry& reg_;
        bool owner_;
    };

    // The last error of the store, for messages.
    const std::string& LastError() const { return lastError_; }

private:
    bool Open(bool create);
    std::optional<RegValue> ReadStore(Hive hive, const std::string& keyPath, const std::string& name);
    bool IsRunKey(Hive hive, const std::string& keyPath) const;
    std::string AutostartFile() const;

    std::string databasePath_;
    std::string autostartDir_;
    sqlite3* db_ = nullptr;
    // The read of one value, prepared once: the monitor reads settings for every task it
    // removes, and preparing costs more than the read.
    sqlite3_stmt* readValue_ = nullptr;
    // The values read while a ReadMemo is open, by hive, key and name in upper case.
    std::optional<std::unordered_map<std::string, std::optional<RegValue>>> memo_;
    std::string lastError_;
    NoticeSink noticeSink_;
    std::set<std::string> noticed_;
};

// Key paths of the store.
inline const std::string kServerRoot = "Software\\Halvenor\\Orvantis Server";
inline const std::string kRunKey = "Software\\Microsoft\\Windows\\CurrentVersion\\Run";
inline const std::string kWinlogonKey = "Software\\Microsoft\\Windows NT\\CurrentVersion\\Winlogon";
inline const std::string kRunValueName = "Orvantis Server";

}  // namespace vq
