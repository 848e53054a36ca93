// Message catalogues: look-up, opening, compiling, each beside what the C library or gettext takes
// for the same texts. The yardsticks' files are made with gencat and msgfmt.
#include <benchmark/benchmark.h>
#include <libintl.h>
#include <nl_types.h>
#include <unistd.h>

#include <clocale>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include "codeset/kel.h"
#include "mdcmain/segment.h"
#include "nls/catalogue_runtime.h"

namespace {

std::string text_of(int number)
{
    return "Message " + std::to_string(number) + ": the file could not be written";
}

void run(const std::string& command)
{
    if (std::system(command.c_str()) != 0) throw std::runtime_error("failed: " + command);
}

// Sources and compiled files of `count` messages in all three formats.
class Fixture {
public:
    explicit Fixture(int count) : count_(count)
    {
        std::string name = "/tmp/corvane-bench-XXXXXX";
        if (mkdtemp(name.data()) == nullptr) throw std::runtime_error("mkdtemp");
        folder_ = name;
        std::filesystem::create_directories(folder_ + "/en/LC_MESSAGES");
        write_sources();
        run(compile_ours());
        run(compile_gettext());
    }
    ~Fixture() { std::filesystem::remove_all(folder_); }
    Fixture(const Fixture&) = delete;
    Fixture& operator=(const Fixture&) = delete;

    [[nodiscard]] int count() const { return count_; }
    [[nodiscard]] std::string ours() const { return folder_ + "/ours.cat"; }
    // Made when it is wanted: gencat takes minutes for a hundred thousand messages.
    [[nodiscard]] std::string system_catalogue() const
    {
        const std::string catalogue = folder_ + "/c.cat";
        if (!std::filesystem::exists(catalogue)) {
            run("gencat " + catalogue + " " + folder_ + "/descending.msg");
        }
        return catalogue;
    }
    [[nodiscard]] const std::string& folder() const { return folder_; }
    [[nodiscard]] std::string compile_ours() const
    {
        return CORVANE_BUILD_DIR "/bin/corvanemsg compile -o " + ours() + " " + folder_ + "/c.msg";
    }
    [[nodiscard]] std::string compile_gettext() const
    {
        return "msgfmt -o " + folder_ + "/en/LC_MESSAGES/bench.mo " + folder_ + "/c.po";
    }

private:
    void write_sources() const
    {
        std::ofstream source(folder_ + "/c.msg");
        std::ofstream descending(folder_ + "/descending.msg");  // gencat takes hours for the other
        std::ofstream po(folder_ + "/c.po");
        source << "$set 2\n";
        descending << "$set 2\n";
        po << "msgid \"\"\nmsgstr \"Content-Type: text/plain; charset=UTF-8\\n\"\n";
        for (int number = 1; number <= count_; ++number) {
            source << number << ' ' << text_of(number) << '\n';
            descending << count_ + 1 - number << ' ' << text_of(count_ + 1 - number) << '\n';
            po << "msgid \"" << number << "\"\nmsgstr \"" << text_of(number) << "\"\n";
        }
    }

    int count_;
    std::string folder_;
};

// Made once for each count.
const Fixture& fixture(std::int64_t count)
{
    static std::map<std::int64_t, Fixture> made;
    return made.try_emplace(count, static_cast<int>(count)).first->second;
}

// Settings of this process alone, so that no segment is made for a benchmark.
void use_private_settings()
{
    static CorvaneSegment settings;
    settings.nlsEnabled = 1;
    fs = &settings;
}

std::vector<int> random_numbers(int count)
{
    std::mt19937 random(7);
    std::vector<int> numbers(4096);
    for (int& number : numbers)
        number = 1 + static_cast<int>(random() % static_cast<unsigned>(count));
    return numbers;
}

void forget_catalogues()
{
    for (vor_cache_entry*& entry : catCache) {
        if (entry == nullptr) continue;
        real_catclose(entry->catalogue);
        nls_free(entry->path);
        nls_free(entry);
        entry = nullptr;
    }
}

void look_up(benchmark::State& state)
{
    use_private_settings();
    const Fixture& files = fixture(state.range(0));
    const vor_cat_t catalogue = vor_catopen(files.ours().c_str(), VOR_LOAD_ALL);
    const std::vector<int> numbers = random_numbers(files.count());
    if (vor_catgets(catalogue, 2, 77, "") != text_of(77)) throw std::runtime_error("wrong text");
    for (auto _ : state) {
        for (const int number : numbers)
            benchmark::DoNotOptimize(vor_catgets(catalogue, 2, number, ""));
    }
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(numbers.size()));
    forget_catalogues();
}
BENCHMARK(look_up)->Arg(1000)->Arg(100000);

void look_up_catgets(benchmark::State& state)
{
    const Fixture& files = fixture(state.range(0));
    const nl_catd catalogue = catopen(files.system_catalogue().c_str(), 0);
    const std::vector<int> numbers = random_numbers(files.count());
    if (catgets(catalogue, 2, 77, "") != text_of(77)) throw std::runtime_error("wrong text");
    for (auto _ : state) {
        for (const int number : numbers)
            benchmark::DoNotOptimize(catgets(catalogue, 2, number, ""));
    }
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(numbers.size()));
    catclose(catalogue);
}
BENCHMARK(look_up_catgets)->Arg(1000)->Arg(100000);

void open_and_convert(benchmark::State& state)
{
    use_private_settings();
    (void)kel_set_def_cs(utf8_cs);
    const Fixture& files = fixture(state.range(0));
    for (auto _ : state) {
        const vor_cat_t catalogue = vor_catopen(files.ours().c_str(), VOR_LOAD_ALL);
        benchmark::DoNotOptimize(vor_catgets(catalogue, 2, files.count(), ""));
        forget_catalogues();
    }
    state.SetItemsProcessed(state.iterations() * files.count());
}
BENCHMARK(open_and_convert)->Arg(1000)->Arg(100000)->Unit(benchmark::kMicrosecond);

// gettext converts each text when it is asked for, so all are.
void open_and_convert_gettext(benchmark::State& state)
{
    const Fixture& files = fixture(state.range(0));
    if (std::setlocale(LC_ALL, "C.UTF-8") == nullptr) throw std::runtime_error("no locale C.UTF-8");
    setenv("LANGUAGE", "en", 1);
    std::vector<std::string> keys;
    for (int number = 1; number <= files.count(); ++number) keys.push_back(std::to_string(number));
    static int round = 0;
    for (auto _ : state) {
        // A new name of the folder makes gettext open the file anew.
        state.PauseTiming();
        const std::string link = files.folder() + "/round" + std::to_string(round++);
        std::filesystem::create_directory_symlink(files.folder(), link);
        state.ResumeTiming();
        bindtextdomain("bench", link.c_str());
        bind_textdomain_codeset("bench", "UTF-8");
        for (const std::string& key : keys) {
            const char* const text = dgettext("bench", key.c_str());
            if (text == key.c_str()) throw std::runtime_error("gettext found nothing");
            benchmark::DoNotOptimize(text);
        }
    }
    state.SetItemsProcessed(state.iterations() * files.count());
}
BENCHMARK(open_and_convert_gettext)->Arg(1000)->Arg(100000)->Unit(benchmark::kMicrosecond);

void compile(benchmark::State& state)
{
    const std::string command = fixture(state.range(0)).compile_ours();
    for (auto _ : state) run(command);
    state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(compile)->Arg(1000)->Arg(100000)->Unit(benchmark::kMillisecond)->UseRealTime();

void compile_msgfmt(benchmark::State& state)
{
    const std::string command = fixture(state.range(0)).compile_gettext();
    for (auto _ : state) run(command);
    state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(compile_msgfmt)->Arg(1000)->Arg(100000)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
