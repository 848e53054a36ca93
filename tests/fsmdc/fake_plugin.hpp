// Two file-system plug-ins inside the test program: each answers as it is told and writes its calls
// down.
#ifndef CORVANE_TESTS_FSMDC_FAKE_PLUGIN_HPP
#define CORVANE_TESTS_FSMDC_FAKE_PLUGIN_HPP

#include <cstdint>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "fsmdc/loader.h"
#include "tests/fsmdc/bytes.hpp"

namespace fsmdc_test {

// What the plug-ins were called with, in order, both together.
inline std::vector<std::string> g_calls;

[[nodiscard]] inline std::string narrow(const FSUNI* text)
{
    std::string narrowed;
    for (; *text != 0; ++text) narrowed += static_cast<char>(*text);
    return narrowed;
}
[[nodiscard]] inline std::string short_hex(const void* cookie)
{
    return hex(cookie, 2);
}

struct MapAnswer {
    std::uint32_t result = 0;
    Bytes record = Bytes(64);  // written to the record's place, as far as there is room
};

// How a plug-in answers. The nth map call takes the nth answer, later ones the last.
struct Script {
    std::int32_t version = 5;
    std::uint32_t vol_cookie_result = 0;
    std::uint32_t cookies_result = 0;
    Bytes volume_cookie = cookie(0x10);
    Bytes file_cookie = cookie(0x50);
    MapAnswer volume;
    std::vector<MapAnswer> maps = {MapAnswer{}};
    std::vector<std::uint32_t> size_results = {0};
    std::uint32_t max_leases_result = 0;
    std::int32_t read_s = 1000;
    std::int32_t write_s = 1000;
    std::function<void()> during_map;     // runs inside FS_GetLockedMap
    std::function<void()> during_sizes;   // runs inside FS_SetFileSizes
    std::function<void(void*)> scribble;  // gets the record's place
};

template <int Number>
class FakePlugin {
public:
    static inline Script script;
    static inline FsLibrary library;

    static void reset()
    {
        script = {};
        map_calls_ = size_calls_ = 0;
        library = {5,
                   get_version,
                   get_vol_cookie,
                   get_vol_by_cookie,
                   get_cookies,
                   get_locked_map,
                   unlock_map,
                   set_file_sizes,
                   get_max_leases,
                   init};
    }

private:
    static inline std::size_t map_calls_ = 0;
    static inline std::size_t size_calls_ = 0;

    static void note(const std::string& call)
    {
        g_calls.push_back(std::to_string(Number) + " " + call);
    }

    static std::int32_t get_version()
    {
        note("GetVersion");
        return script.version;
    }
    static std::uint32_t init()
    {
        note("Init");
        return 0;
    }
    static std::uint32_t get_vol_cookie(const FSUNI* mount_point, void* volume_cookie)
    {
        note("GetVolCookie " + narrow(mount_point));
        if (script.vol_cookie_result == 0)
            std::memcpy(volume_cookie, script.volume_cookie.data(), 32);
        return script.vol_cookie_result;
    }
    static void write(const MapAnswer& answer, void* record, std::uint32_t room)
    {
        const std::size_t count = std::min<std::size_t>(answer.record.size(), room);
        if (count > 0) std::memcpy(record, answer.record.data(), count);
        if (script.scribble) script.scribble(record);
    }
    static std::uint32_t get_vol_by_cookie(const void* volume_cookie, void* record,
                                           std::uint32_t* room)
    {
        note("GetVolByCookie " + short_hex(volume_cookie) + " room " + std::to_string(*room));
        write(script.volume, record, *room);
        return script.volume.result;
    }
    static std::uint32_t get_cookies(const FSUNI* path, void* volume_cookie, void* file_cookie)
    {
        note("GetCookies " + narrow(path));
        if (script.cookies_result == 0) {
            std::memcpy(volume_cookie, script.volume_cookie.data(), 32);
            std::memcpy(file_cookie, script.file_cookie.data(), 32);
        }
        return script.cookies_result;
    }
    static std::uint32_t get_locked_map(const void* volume_cookie, const void* file_cookie,
                                        std::int64_t start, std::int64_t length, std::int32_t flag,
                                        void* record, std::uint32_t* room)
    {
        note("GetLockedMap " + short_hex(volume_cookie) + " " + short_hex(file_cookie) + " start " +
             std::to_string(start) + " length " + std::to_string(length) + " flag " +
             std::to_string(flag) + " room " + std::to_string(*room));
        if (script.during_map) script.during_map();
        const MapAnswer& answer = script.maps[std::min(map_calls_++, script.maps.size() - 1)];
        write(answer, record, *room);
        return answer.result;
    }
    static std::uint32_t unlock_map(const void* volume_cookie, const void* file_cookie)
    {
        note("UnlockMap " + short_hex(volume_cookie) + " " + short_hex(file_cookie));
        return 99;  // is ignored
    }
    static std::uint32_t set_file_sizes(const void* volume_cookie, const void* file_cookie,
                                        std::int32_t unused, std::int64_t size,
                                        std::int64_t allocation, std::int64_t reserved)
    {
        note("SetFileSizes " + short_hex(volume_cookie) + " " + short_hex(file_cookie) + " " +
             std::to_string(unused) + " size " + std::to_string(size) + " allocation " +
             std::to_string(allocation) + " " + std::to_string(reserved));
        if (script.during_sizes) script.during_sizes();
        return script.size_results[std::min(size_calls_++, script.size_results.size() - 1)];
    }
    static std::uint32_t get_max_leases(const void* volume_cookie, std::int32_t* read_s,
                                        std::int32_t* write_s)
    {
        note("GetMaxLeases " + short_hex(volume_cookie) + " read " + std::to_string(*read_s) +
             " write " + std::to_string(*write_s));
        *read_s = script.read_s;
        *write_s = script.write_s;
        return script.max_leases_result;
    }
};

using PluginA = FakePlugin<0>;
using PluginB = FakePlugin<1>;

}  // namespace fsmdc_test
#endif
