// The daemon writes its messages in the language and code set of its locale: a taken port, told in
// the log.
#include <arpa/inet.h>
#include <iconv.h>

#include <array>

#include "tests/harness/daemon.hpp"

namespace corvane::harness {
namespace {

// `text` of UTF-8 as the C library converts it.
std::string converted(const std::string& text, const char* code_set)
{
    const iconv_t converter = ::iconv_open(code_set, "UTF-8");
    std::string in = text;
    std::string out(4 * text.size(), '\0');
    char* from = in.data();
    char* to = out.data();
    std::size_t left = in.size();
    std::size_t room = out.size();
    EXPECT_EQ(::iconv(converter, &from, &left, &to, &room), 0U)
        << "not all of it is in " << code_set;
    ::iconv_close(converter);
    out.resize(out.size() - room);
    return out;
}

class Language : public DaemonTest {
protected:
    // Makes a locale of the C library for the world; false when the machine cannot.
    bool make_locale(const std::string& source, const std::string& charmap, const std::string& name)
    {
        std::filesystem::create_directories(world().path("/tmp/locales"));
        const Command command = {
            {"localedef", "-i", source, "-f", charmap, "--no-archive", "/tmp/locales/" + name}, {}};
        return world().run(command).status == 0;
    }
    void install_table(const std::string& name)
    {
        const std::filesystem::path folder = world().path("/usr/Corvane/codeset");
        std::filesystem::create_directories(folder);
        std::filesystem::copy_file(CORVANE_BUILD_DIR "/tables/codeset/" + name, folder / name);
    }
    // The log of a daemon that found its port taken.
    std::string log_of_taken_port(const std::vector<std::string>& environment)
    {
        const Fd taken = world().socket(Network::kMain, AF_INET, SOCK_DGRAM);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(kPort);
        EXPECT_EQ(::bind(taken.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address),
                  0);
        for (const std::string& setting : environment) environment_.push_back(setting);
        environment_.emplace_back("LOCPATH=/tmp/locales");
        EXPECT_EQ(world().run(daemon_command({"-d"})).status, 1);
        return log();
    }
};

constexpr char kJapanese[] =
    "FTX1194W DGRAM_BindListener がエラー 1104 で失敗しました。別の corvaned "
    "がすでに実行中の可能性があります。\n";
constexpr char kGerman[] =
    "FTX1194W DGRAM_BindListener fehlgeschlagen: 1104.  Vielleicht läuft bereits ein anderer "
    "corvaned.\n";
constexpr char kEnglish[] =
    "FTX1194W DGRAM_BindListener failed 1104.  Perhaps another corvaned is running.\n";

TEST_F(Language, JapaneseInEucJp)
{
    if (!make_locale("ja_JP", "EUC-JP", "ja_JP.eucJP"))
        GTEST_SKIP() << "localedef cannot make ja_JP.eucJP";
    install_table("EUCJP");
    const std::string log = log_of_taken_port({"LANG=ja_JP.eucJP"});
    EXPECT_NE(log.find(converted(kJapanese, "EUC-JP")), std::string::npos);
    EXPECT_EQ(log.find(kJapanese), std::string::npos);
}

TEST_F(Language, GermanInLatin1)
{
    if (!make_locale("de_DE", "ISO-8859-1", "de_DE.ISO-8859-1")) {
        GTEST_SKIP() << "localedef cannot make de_DE.ISO-8859-1";
    }
    install_table("ISO88591");
    const std::string log = log_of_taken_port({"LANG=de_DE.ISO-8859-1"});
    EXPECT_NE(log.find(converted(kGerman, "ISO-8859-1")), std::string::npos);
    EXPECT_EQ(log.find(kGerman), std::string::npos);
}

TEST_F(Language, JapaneseInUtf8)
{
    if (!make_locale("ja_JP", "UTF-8", "ja_JP.UTF-8"))
        GTEST_SKIP() << "localedef cannot make ja_JP.UTF-8";
    EXPECT_NE(log_of_taken_port({"LANG=ja_JP.UTF-8"}).find(kJapanese), std::string::npos);
}

TEST_F(Language, EnglishWithAnUnknownLocale)
{
    EXPECT_NE(log_of_taken_port({"LANG=xx_YY.UTF-8"}).find(kEnglish), std::string::npos);
}

TEST_F(Language, EnglishWithoutALocale)
{
    EXPECT_NE(log_of_taken_port({}).find(kEnglish), std::string::npos);
}

TEST_F(Language, MessagesVariableGoesBeforeLang)
{
    if (!make_locale("de_DE", "UTF-8", "de_DE.UTF-8"))
        GTEST_SKIP() << "localedef cannot make de_DE.UTF-8";
    EXPECT_NE(log_of_taken_port({"LANG=C", "LC_MESSAGES=de_DE.UTF-8", "LC_CTYPE=de_DE.UTF-8"})
                  .find(kGerman),
              std::string::npos);
}

// What the locale's ASCII leaves alone of the texts.
constexpr char kGermanStart[] = "FTX1194W DGRAM_BindListener fehlgeschlagen: 1104.";
constexpr char kSpanishStart[] = "FTX1194W Error en DGRAM_BindListener: 1104.";

constexpr std::int64_t kLangFromFile = 0x20A0C0;
constexpr std::int64_t kDecimalPoint = 0x20A0C8;

TEST_F(Language, LanguageFileIsFollowedByEveryAttachWhileItIsThere)
{
    make_segment();
    environment_.emplace_back("LANG=C");
    struct Step {
        std::string path;
        const char* text;
    };
    for (const Step& step : {Step{"/usr/Corvane/nls/de/corvanecat.cat", kGermanStart},
                             Step{"/usr/Corvane/nls/es/corvanecat.cat", kSpanishStart}}) {
        clear_log();
        world().write_file("/usr/Corvane/lang.txt", step.path + "\n");
        EXPECT_NE(log_of_taken_port({}).find(step.text), std::string::npos) << log();
        EXPECT_EQ(world().text(segment::kNlsPath, 256), step.path);
        EXPECT_EQ(world().text(segment::kLangName, 256), "/C");
        EXPECT_EQ(world().word(kLangFromFile), 1);
        EXPECT_EQ(world().word(kDecimalPoint), ',');
    }

    clear_log();
    std::filesystem::remove(world().path("/usr/Corvane/lang.txt"));
    EXPECT_NE(log_of_taken_port({}).find(kEnglish), std::string::npos) << log();
    EXPECT_EQ(world().text(segment::kNlsPath, 256), "/usr/Corvane/nls/C/corvanecat.cat");
    EXPECT_EQ(world().text(segment::kLangName, 256), "/C");
    EXPECT_EQ(world().word(kLangFromFile), 0);
    EXPECT_EQ(world().word(kDecimalPoint), '.');
}

TEST_F(Language, CorruptCatalogueLeavesTheBuiltInTexts)
{
    world().write_file("/usr/Corvane/nls/de/corvanecat.cat", "not a catalogue");
    EXPECT_NE(log_of_taken_port({"LANG=de_DE.UTF-8"}).find(kEnglish), std::string::npos);
}

}  // namespace
}  // namespace corvane::harness
