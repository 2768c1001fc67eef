// The registry of one device: the driver key and its subkeys, each holding
// 32-bit values. Names compare case-insensitively as the platform's do (ASCII
// and Latin-1 letters fold; other characters compare exactly). The driver key
// itself is the subkey "". Thread-safe.
//
// Tests and tools preload values before the device starts and read them back
// afterwards through the narrow-string calls (ASCII names).
#pragma once

#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

#include "platform/basetypes.h"

namespace host::framework {

class RegistryStore {
public:
    // Narrow-string interface for tests and tools. Preload creates the subkey.
    void Preload(std::string_view subkey, std::string_view value, ULONG data);
    void CreateSubkey(std::string_view subkey);
    bool HasSubkey(std::string_view subkey) const;
    std::optional<ULONG> Read(std::string_view subkey, std::string_view value) const;

    // Framework interface (UTF-16 names, subkey paths joined with '\').
    // Creates the key if absent; true when it was created now.
    bool CreateKey(const std::u16string& path);
    bool HasKey(const std::u16string& path) const;
    std::optional<ULONG> Query(const std::u16string& path, const std::u16string& value) const;
    // False when the key does not exist.
    bool Assign(const std::u16string& path, const std::u16string& value, ULONG data);

    static std::u16string Widen(std::string_view ascii);

private:
    static std::u16string Fold(std::u16string_view name);

    mutable std::mutex mutex_;
    // Folded key path → folded value name → data. The driver key "" always exists.
    std::map<std::u16string, std::map<std::u16string, ULONG>> keys_{{u"", {}}};
};

}  // namespace host::framework
