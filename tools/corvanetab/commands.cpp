// The subcommands of corvanetab: building, showing and checking table files.
#include "tools/corvanetab/commands.hpp"

#include <array>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <nlohmann/json.hpp>
#include <stdexcept>

#include "codeset/kel_cs.h"
#include "tools/corvanetab/mapping.hpp"
#include "tools/corvanetab/summary.hpp"
#include "tools/corvanetab/table_builder.hpp"
#include "tools/corvanetab/table_check.hpp"

namespace corvane::tab {
namespace {

void write_file(const std::string& path, const char* bytes, std::size_t size)
{
    std::ofstream file(path, std::ios::binary);
    file.write(bytes, static_cast<std::streamsize>(size));
    file.close();
    if (!file) throw std::runtime_error("cannot write '" + path + "': " + std::strerror(errno));
}

[[nodiscard]] std::vector<std::uint8_t> read_file(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    if (!file) throw std::runtime_error("cannot read '" + path + "': " + std::strerror(errno));
    const std::vector<char> bytes{std::istreambuf_iterator<char>(file), {}};
    if (file.bad()) throw std::runtime_error("cannot read '" + path + "'");
    return {bytes.begin(), bytes.end()};
}

// The name under which the library looks for a code set.
[[nodiscard]] std::string table_name(const std::string& name)
{
    std::array<char, 128> buffer{};
    (void)get_table_name(name.c_str(), buffer.data(), buffer.size());
    return buffer.data();
}

void write_aliases(const std::filesystem::path& table, const std::vector<std::string>& aliases)
{
    const std::string text = table.filename().string() + "\n";
    for (const std::string& alias : aliases) {
        write_file((table.parent_path() / alias).string(), text.data(), text.size());
    }
}

// A table that the tool itself would complain about must not leave it.
void verify(const std::vector<std::uint8_t>& table)
{
    Complaints complaints;
    check_table(table, complaints);
    if (complaints.count() != 0) {
        throw std::runtime_error("the table is not sound: " + complaints.texts().front());
    }
}

}  // namespace

void build(const std::string& name, std::string output, const std::vector<std::string>& aliases,
           bool json)
{
    const Mapping mapping = read_mapping(name);
    const std::vector<std::uint8_t> table = build_table(mapping);
    verify(table);
    if (output.empty()) output = table_name(name);
    write_file(output, std::string(table.begin(), table.end()).data(), table.size());
    write_aliases(output, aliases);
    if (json) {
        const nlohmann::json result = {
            {"name", name},          {"file", output},     {"family", family_name(mapping.type)},
            {"bytes", table.size()}, {"aliases", aliases}, {"notes", mapping.notes}};
        std::cout << result.dump(2) << "\n";
        return;
    }
    std::cout << name << ": " << family_name(mapping.type) << ", " << table.size() << " bytes in "
              << output << "\n";
    for (const std::string& note : mapping.notes) {
        std::cout << name << ": note: " << note << "\n";
    }
}

void show(const std::string& path, bool json)
{
    const std::vector<std::uint8_t> file = read_file(path);
    Complaints complaints;
    check_table(file, complaints);
    const bool has_header =
        file.size() >= kel::kLeastTableSize && family_name(type_of(file)) != nullptr;
    if (!has_header) throw std::runtime_error("'" + path + "': " + complaints.texts().front());
    const Summary summary = summarize(file);
    std::cout << (json ? to_json(summary).dump(2) + "\n" : to_text(summary));
    if (complaints.count() != 0) {
        std::cerr << "corvanetab: the table is not sound; see corvanetab check " << path << "\n";
    }
}

bool check(const std::string& path, bool json)
{
    Complaints complaints;
    check_table(read_file(path), complaints);
    if (json) {
        const nlohmann::json result = {{"file", path},
                                       {"sound", complaints.count() == 0},
                                       {"count", complaints.count()},
                                       {"complaints", complaints.texts()}};
        std::cout << result.dump(2) << "\n";
    } else {
        for (const std::string& text : complaints.texts())
            std::cout << path << ": " << text << "\n";
        if (complaints.count() > complaints.texts().size()) {
            std::cout << path << ": and " << complaints.count() - complaints.texts().size()
                      << " more\n";
        }
        if (complaints.count() == 0) std::cout << path << ": sound\n";
    }
    return complaints.count() == 0;
}

}  // namespace corvane::tab
