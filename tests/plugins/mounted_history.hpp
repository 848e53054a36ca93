// One random history of a mounted volume: local programs and two clients work on a few files, and
// everything that a reader sees is compared with a model of what it may see.
#ifndef CORVANE_TESTS_PLUGINS_MOUNTED_HISTORY_HPP
#define CORVANE_TESTS_PLUGINS_MOUNTED_HISTORY_HPP

#include <array>
#include <cstdint>
#include <limits>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "tests/plugins/mounted_volume.hpp"
#include "tests/plugins/plugin.hpp"

namespace corvane::test {

// How often each kind of step was done, and refused; a history that only ever refuses shows
// nothing.
struct HistoryCounts {
    int client_reads = 0;
    int client_writes = 0;
    int client_refusals = 0;
    int local_changes = 0;
    int local_waits = 0;  // a local program would have had to wait for a client
};

class History {
public:
    History(const Plugin& plugin, MountedVolume& volume, unsigned seed);

    // Makes the first files.
    void begin();
    void step();
    // Every client is done or dead and its lease over; then every file is read and compared.
    void end();

    [[nodiscard]] const std::string& trace() const { return trace_; }
    [[nodiscard]] const HistoryCounts& counts() const { return counts_; }

private:
    static constexpr std::int64_t kNever = std::numeric_limits<std::int64_t>::max();

    // A file as its readers may see it. What lies in `disk` behind `size` shows when a client names
    // a larger size; from `unknown_from` on nothing is promised until the last lease on the file
    // ends.
    struct ModelFile {
        std::string name;  // none: unlinked
        std::string disk;
        std::int64_t size = 0;
        std::int64_t unknown_from = kNever;
        int leases = 0;
        int version = 0;  // of its blocks: a map taken at an earlier one may lack some

        [[nodiscard]] std::string content() const;
    };
    using FilePtr = std::shared_ptr<ModelFile>;

    struct Client {
        FilePtr file;  // none: it has nothing open
        Cookies cookies;
        Map map;
        int version = 0;
        bool may_write = false;
        bool is_dead = false;  // its lease has yet to end
    };

    // A local program that keeps a file open, perhaps mapped.
    struct Holder {
        FilePtr file;
        Descriptor descriptor{-1};
        bool may_write = false;
        char* mapped = nullptr;
        std::size_t mapped_bytes = 0;
    };

    // What local programs do.
    void create();
    void write_locally();
    void resize_locally();
    void punch();
    void preallocate();
    void read_locally();
    void rename_one();
    void unlink_one();
    void reflink();
    void hold();
    void use_held();
    void let_go(Holder& holder);

    // What clients do, as the daemon passes it on.
    void client_step();
    void open_client(Client& client);
    void allocate(Client& client);
    void read_as(Client& client);
    void write_as(Client& client);
    void name_size(Client& client);
    void close(Client& client);
    void end_lease(Client& client);
    bool set_size(Client& client, std::int64_t size, std::int64_t allocation);
    bool take_map(Client& client, std::int64_t length);
    void refused(std::uint32_t code);
    void check_write_map(const Client& client, std::int64_t allocation);
    void learn(const FilePtr& file);

    [[nodiscard]] Descriptor open_locally(const FilePtr& file, int flags);
    void change_locally(const FilePtr& file, int descriptor, std::int64_t at,
                        const std::string& bytes);
    void compare(const std::string& seen, const ModelFile& file, const std::string& who);

    unsigned pick(std::size_t count) { return static_cast<unsigned>(random_() % count); }
    [[nodiscard]] std::int64_t random_size();
    [[nodiscard]] std::string random_bytes(std::int64_t count);
    [[nodiscard]] FilePtr random_file();
    [[nodiscard]] std::string fresh_name();
    void note(const std::string& line) { trace_ += line + "\n"; }

    const Plugin& plugin_;
    MountedVolume& volume_;
    std::mt19937 random_;
    std::vector<FilePtr> files_;  // those with names
    std::array<Client, 2> clients_;
    std::array<Holder, 2> holders_;
    int next_name_ = 0;
    std::string trace_;
    HistoryCounts counts_;
};

}  // namespace corvane::test

#endif
