#include "host/common/host_state.h"

#include <array>
#include <cassert>
#include <mutex>

namespace host {
namespace {

struct ResetTable {
    std::mutex mutex;
    std::array<void (*)(), 32> resets{};
    std::size_t count = 0;
};

ResetTable& Table()
{
    static ResetTable table;
    return table;
}

}  // namespace

void RegisterHostStateReset(void (*reset)())
{
    ResetTable& table = Table();
    std::lock_guard lock(table.mutex);
    for (std::size_t i = 0; i < table.count; ++i) {
        if (table.resets[i] == reset)
            return;
    }
    assert(table.count < table.resets.size());
    if (table.count < table.resets.size())
        table.resets[table.count++] = reset;
}

void ResetHostState()
{
    std::array<void (*)(), 32> resets{};
    std::size_t count = 0;
    {
        ResetTable& table = Table();
        std::lock_guard lock(table.mutex);
        resets = table.resets;
        count = table.count;
    }
    for (std::size_t i = 0; i < count; ++i)
        resets[i]();
}

}  // namespace host
