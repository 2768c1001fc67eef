#include "host/framework/registry_store.h"

namespace host::framework {

std::u16string RegistryStore::Widen(std::string_view ascii)
{
    std::u16string wide;
    wide.reserve(ascii.size());
    for (char c : ascii)
        wide.push_back(static_cast<char16_t>(static_cast<unsigned char>(c)));
    return wide;
}

std::u16string RegistryStore::Fold(std::u16string_view name)
{
    std::u16string folded(name);
    for (char16_t& c : folded) {
        const bool asciiLower = c >= u'a' && c <= u'z';
        const bool latinLower = c >= 0xE0 && c <= 0xFE && c != 0xF7;
        if (asciiLower || latinLower)
            c = static_cast<char16_t>(c - 0x20);
    }
    return folded;
}

void RegistryStore::Preload(std::string_view subkey, std::string_view value, ULONG data)
{
    const std::u16string path = Widen(subkey);
    CreateKey(path);
    Assign(path, Widen(value), data);
}

void RegistryStore::CreateSubkey(std::string_view subkey)
{
    CreateKey(Widen(subkey));
}

bool RegistryStore::HasSubkey(std::string_view subkey) const
{
    return HasKey(Widen(subkey));
}

std::optional<ULONG> RegistryStore::Read(std::string_view subkey, std::string_view value) const
{
    return Query(Widen(subkey), Widen(value));
}

bool RegistryStore::CreateKey(const std::u16string& path)
{
    std::lock_guard lock(mutex_);
    return keys_.try_emplace(Fold(path)).second;
}

bool RegistryStore::HasKey(const std::u16string& path) const
{
    std::lock_guard lock(mutex_);
    return keys_.count(Fold(path)) != 0;
}

std::optional<ULONG> RegistryStore::Query(const std::u16string& path, const std::u16string& value) const
{
    std::lock_guard lock(mutex_);
    auto key = keys_.find(Fold(path));
    if (key == keys_.end())
        return std::nullopt;
    auto entry = key->second.find(Fold(value));
    if (entry == key->second.end())
        return std::nullopt;
    return entry->second;
}

bool RegistryStore::Assign(const std::u16string& path, const std::u16string& value, ULONG data)
{
    std::lock_guard lock(mutex_);
    auto key = keys_.find(Fold(path));
    if (key == keys_.end())
        return false;
    key->second[Fold(value)] = data;
    return true;
}

}  // namespace host::framework
