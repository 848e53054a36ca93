// A file-system plug-in for tests: answers as a script in the world says and writes down every
// call.
//
// For a library .../NAME the script is /tmp/recorder/NAME.script, one line an entry point:
//     FS_GetLockedMap result=1 record=00ff.. room=128 gate=/tmp/go
// Keys: result (number), volume, file, record (hex bytes written out), room (number stored back;
// default the record's size), read, write (seconds), path, mount (hex bytes of a name), gate (a
// file that must exist before the call returns), ms (delay). The nth call takes an entry point's
// nth line; the last line stands for all later calls. Without a line the result is 408 (0 for
// FS_Init, 1 for FS_GetVersion). Calls go to /tmp/recorder/calls: "NAME ENTRY key=value ...",
// cookies in hex.
#include <dlfcn.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <map>
#include <mutex>
#include <sstream>
#include <string>

#include "fsmdc/fs_plugin.h"

namespace {

constexpr std::size_t kCookieBytes = 32;

using Answer = std::map<std::string, std::string>;

std::string own_name()
{
    Dl_info info{};
    if (::dladdr(reinterpret_cast<const void*>(&FS_GetVersion), &info) == 0) return "?";
    const std::string path = info.dli_fname;
    return path.substr(path.rfind('/') + 1);
}

std::string hex(const void* bytes, std::size_t count)
{
    std::string text;
    for (std::size_t i = 0; i < count; ++i) {
        char digits[3];
        std::snprintf(digits, sizeof digits, "%02x",
                      static_cast<unsigned>(static_cast<const unsigned char*>(bytes)[i]));
        text += digits;
    }
    return text;
}

std::string narrow(const FSUNI* text)
{
    std::string narrowed;
    for (; *text != 0; ++text) narrowed += static_cast<char>(*text);
    return narrowed;
}

// One write with O_APPEND, so that calls of several threads stay whole lines.
void record_call(const std::string& entry, const std::string& arguments)
{
    const std::string line =
        own_name() + " " + entry + (arguments.empty() ? "" : " ") + arguments + "\n";
    const int file = ::open("/tmp/recorder/calls", O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0666);
    if (file < 0) return;
    if (::write(file, line.data(), line.size()) < 0) std::perror("/tmp/recorder/calls");
    ::close(file);
}

// Which call of this entry point it is, from 0.
int next_call_number(const std::string& entry)
{
    static std::mutex lock;
    static std::map<std::string, int> numbers;
    const std::lock_guard<std::mutex> guard(lock);
    return numbers[entry]++;
}

Answer read_answer(const std::string& entry)
{
    std::ifstream script("/tmp/recorder/" + own_name() + ".script");
    Answer answer;
    int number = next_call_number(entry);
    for (std::string line; std::getline(script, line);) {
        std::istringstream words(line);
        std::string word;
        words >> word;
        if (word != entry) continue;
        answer.clear();
        while (words >> word) {
            const auto equals = word.find('=');
            answer[word.substr(0, equals)] = word.substr(equals + 1);
        }
        if (number-- == 0) break;
    }
    return answer;
}

long long number_of(const Answer& answer, const std::string& key, long long fallback)
{
    const auto found = answer.find(key);
    return found == answer.end() ? fallback : std::strtoll(found->second.c_str(), nullptr, 0);
}

// Writes the bytes that the answer gives in hex under `key`, as many as fit. Returns how many it
// gave.
std::size_t write_hex(const Answer& answer, const std::string& key, void* to, std::size_t room)
{
    const auto found = answer.find(key);
    if (found == answer.end()) return 0;
    const std::size_t count = found->second.size() / 2;
    for (std::size_t i = 0; i < std::min(count, room); ++i) {
        static_cast<unsigned char*>(to)[i] =
            static_cast<unsigned char>(std::stoul(found->second.substr(2 * i, 2), nullptr, 16));
    }
    return count;
}

void write_record(const Answer& answer, void* record, uint32_t* room_bytes)
{
    const std::size_t count = write_hex(answer, "record", record, *room_bytes);
    *room_bytes = static_cast<uint32_t>(number_of(answer, "room", static_cast<long long>(count)));
}

// Writes the call down, holds it as long as the script says, and returns the script's answer.
Answer answer_call(const std::string& entry, const std::string& arguments)
{
    record_call(entry, arguments);
    Answer answer = read_answer(entry);
    const auto gate = answer.find("gate");
    for (int i = 0; gate != answer.end() && i < 6000; ++i) {
        if (::access(gate->second.c_str(), F_OK) == 0) break;
        ::usleep(5000);
    }
    ::usleep(static_cast<useconds_t>(number_of(answer, "ms", 0) * 1000));
    return answer;
}

uint32_t result_of(const Answer& answer, long long fallback = 408)
{
    return static_cast<uint32_t>(number_of(answer, "result", fallback));
}

std::string cookie_text(const char* name, const void* cookie)
{
    return std::string(name) + "=" + hex(cookie, kCookieBytes);
}

}  // namespace

extern "C" {

uint32_t FS_Init()
{
    return result_of(answer_call("FS_Init", ""), 0);
}

int32_t FS_GetVersion()
{
    return static_cast<int32_t>(result_of(answer_call("FS_GetVersion", ""), 1));
}

uint32_t FS_GetVolCookie(const FSUNI* mount_point, void* volume_cookie)
{
    const Answer answer = answer_call("FS_GetVolCookie", "path=" + narrow(mount_point));
    write_hex(answer, "volume", volume_cookie, kCookieBytes);
    return result_of(answer);
}

uint32_t FS_GetVolByCookie(const void* volume_cookie, void* record, uint32_t* room_bytes)
{
    const Answer answer = answer_call("FS_GetVolByCookie",
                                      cookie_text("volume", volume_cookie) +
                                          " room=" + std::to_string(static_cast<int>(*room_bytes)));
    write_record(answer, record, room_bytes);
    return result_of(answer);
}

uint32_t FS_GetCookies(const FSUNI* path, void* volume_cookie, void* file_cookie)
{
    const Answer answer = answer_call("FS_GetCookies", "path=" + narrow(path));
    write_hex(answer, "volume", volume_cookie, kCookieBytes);
    write_hex(answer, "file", file_cookie, kCookieBytes);
    return result_of(answer);
}

uint32_t FS_GetLockedMap(const void* volume_cookie, const void* file_cookie, int64_t start,
                         int64_t length, int32_t flag, void* record, uint32_t* room_bytes)
{
    const Answer answer =
        answer_call("FS_GetLockedMap",
                    cookie_text("volume", volume_cookie) + " " + cookie_text("file", file_cookie) +
                        " start=" + std::to_string(start) + " length=" + std::to_string(length) +
                        " flag=" + std::to_string(flag) +
                        " room=" + std::to_string(static_cast<int>(*room_bytes)));
    write_record(answer, record, room_bytes);
    return result_of(answer);
}

#ifndef CORVANE_RECORDER_INCOMPLETE
uint32_t FS_UnlockMap(const void* volume_cookie, const void* file_cookie)
{
    return result_of(answer_call("FS_UnlockMap", cookie_text("volume", volume_cookie) + " " +
                                                     cookie_text("file", file_cookie)),
                     0);
}
#endif

uint32_t FS_SetFileSizes(const void* volume_cookie, const void* file_cookie, int32_t unused,
                         int64_t file_size, int64_t allocation_size, int64_t reserved)
{
    return result_of(
        answer_call("FS_SetFileSizes",
                    cookie_text("volume", volume_cookie) + " " + cookie_text("file", file_cookie) +
                        " unused=" + std::to_string(unused) + " size=" + std::to_string(file_size) +
                        " allocation=" + std::to_string(allocation_size) +
                        " reserved=" + std::to_string(reserved)));
}

#ifndef CORVANE_RECORDER_WITHOUT_LEASES
uint32_t FS_GetMaxLeases(const void* volume_cookie, int32_t* read_s, int32_t* write_s)
{
    const Answer answer = answer_call("FS_GetMaxLeases", cookie_text("volume", volume_cookie) +
                                                             " read=" + std::to_string(*read_s) +
                                                             " write=" + std::to_string(*write_s));
    *read_s = static_cast<int32_t>(number_of(answer, "read", *read_s));
    *write_s = static_cast<int32_t>(number_of(answer, "write", *write_s));
    return result_of(answer);
}
#endif

uint32_t FS_GetPath(const void* volume_cookie, const void* file_cookie, char* path,
                    uint32_t* room_bytes)
{
    const bool is_file = file_cookie != nullptr;
    const Answer answer =
        answer_call("FS_GetPath", cookie_text("volume", volume_cookie) + " " +
                                      (is_file ? cookie_text("file", file_cookie) : "file=none"));
    const std::size_t count = write_hex(answer, is_file ? "path" : "mount", path, *room_bytes);
    *room_bytes = static_cast<uint32_t>(number_of(answer, "room", static_cast<long long>(count)));
    return result_of(answer);
}

}  // extern "C"
