#include "platform/status.h"

#include "platform/paths.h"

#include <algorithm>
#include <clocale>
#include <cstdlib>
#include <iterator>
#include <libintl.h>
#include <locale.h>
#include <optional>
#include <string_view>

namespace {

constexpr tq::StatusText STATUS_TEXTS[] = {
    {EC_internal, "internal", "An internal failure without a status of its own occurred"},
    {EC_success, "success", "The requested operation was successfully completed"},
    {EC_unlink_failed, "unlink_failed", "A file could not be removed or a command could not be started"},
    {EC_file_open_failed, "file_open_failed", "A file could not be opened"},
    {EC_file_read_failed, "file_read_failed", "A file could not be read or holds no usable line"},
    {EC_file_write_failed, "file_write_failed", "A file could not be written"},
    {EC_invalid_argument, "invalid_argument", "A command parameter is invalid"},
    {EC_cannot_connect, "cannot_connect",
     "The server could not be reached because its name is unknown or it refused the connection"},
    {EC_invalid_program_name, "invalid_program_name", "The program's base name cannot be formed"},
    {EC_no_master_server, "no_master_server", "No master server is configured for this host"},
    {EC_unexpected_reply, "unexpected_reply", "The reply could not be understood"},
    {EC_stat_failed, "stat_failed", "The attributes of a file could not be read"},
    {EC_no_trust_version, "no_trust_version", "No trust version is recorded for this identity"},
    {EC_exit_beyond_byte, "exit_beyond_byte",
     "The status does not fit into an exit status, see the debug log"},
    {EC_not_windows_cluster, "not_windows_cluster", "This host is not part of a Windows cluster"},
    {EC_command_not_started, "command_not_started", "An external command could not be started"},
    {EC_command_output_lost, "command_output_lost",
     "Reading the output of an external command stopped before its end"},
    {EC_command_too_long, "command_too_long", "A command line exceeds the maximum allowed length"},
    {EC_package_query_failed, "package_query_failed", "The query for the installed packages failed"},
    {EC_package_list_too_long, "package_list_too_long",
     "The list of installed packages exceeds the maximum allowed length"},
    {EC_platform_name_too_long, "platform_name_too_long",
     "The platform name of the deployment tool exceeds the maximum allowed length"},
    {EC_platform_name_invalid, "platform_name_invalid",
     "The platform identifier of the deployment tool names no platform"},
    {EC_no_installed_version, "no_installed_version",
     "No installed version was found, or the web service failed without giving a status"},
    {EC_version_file_not_opened, "version_file_not_opened",
     "A version file or the pack summary could not be opened"},
    {EC_identity_store_missing, "identity_store_missing",
     "This host has no identity yet because the identity store is missing"},
    {EC_identity_store_damaged, "identity_store_damaged",
     "The identity store is damaged, unreadable or in an unsafe directory"},
    {EC_identity_not_found, "identity_not_found",
     "The identity store holds no identity for this server and certificate type"},
    {EC_identity_text_too_long, "identity_text_too_long",
     "A text of the identity store exceeds the maximum allowed length"},
    {EC_web_timeout, "web_timeout", "The web service did not answer in time"},
    {EC_web_not_trusted, "web_not_trusted", "The connection to the web service is not trusted"},
    {EC_web_certificate_refused, "web_certificate_refused",
     "This host's certificate or private key is missing, unusable or was refused by the web service"},
    {EC_web_reply_too_large, "web_reply_too_large", "The reply of the web service exceeds the size limit"},
    {EC_web_reply_broken, "web_reply_broken", "The reply of the web service was cut off or is not HTTP"},
    {EC_web_no_token, "web_no_token", "No access token could be obtained from the web service"},
    {EC_web_request_failed, "web_request_failed", "The request to the web service could not be made"},
    {EC_cluster_manager_missing, "cluster_manager_missing",
     "The cluster manager is not installed on this host"},
};

/// Language of a locale name, "de_DE" of "de_DE.UTF-8". Absent when it asks for no translation. A name with
/// other characters, "/" above all, is not taken: the language becomes part of a path.
std::optional<std::string> languageOf(const char* locale)
{
    constexpr std::size_t LANGUAGE_MAX_LENGTH = 64;
    if (!locale)
        return std::nullopt;
    const std::string_view name = locale;
    const std::string_view language = name.substr(0, name.find('.'));
    const bool plain = std::all_of(language.begin(), language.end(), [](char character) {
        return (character >= 'a' && character <= 'z') || (character >= 'A' && character <= 'Z') ||
               (character >= '0' && character <= '9') || character == '_' || character == '@' ||
               character == '-';
    });
    if (language.empty() || language.size() > LANGUAGE_MAX_LENGTH || !plain || language == "C" ||
        language == "POSIX")
        return std::nullopt;
    return std::string(language);
}

/// Sets LANGUAGE and puts it back.
class LanguageVariable {
public:
    explicit LanguageVariable(const std::string& language)
    {
        if (const char* value = std::getenv(NAME))
            previous_ = value;
        setenv(NAME, language.c_str(), 1);
    }
    LanguageVariable(const LanguageVariable&) = delete;
    LanguageVariable& operator=(const LanguageVariable&) = delete;
    ~LanguageVariable()
    {
        if (previous_)
            setenv(NAME, previous_->c_str(), 1);
        else
            unsetenv(NAME);
    }

private:
    static constexpr const char* NAME = "LANGUAGE";
    std::optional<std::string> previous_;
};

/// Gives this thread the locale that lets the C library translate, and puts the old one back. It is the one
/// locale besides C that every system has.
class TranslatingLocale {
public:
    TranslatingLocale()
        : locale_(newlocale(LC_ALL_MASK, "C.UTF-8", nullptr)),
          previous_(locale_ ? uselocale(locale_) : nullptr)
    {
    }
    TranslatingLocale(const TranslatingLocale&) = delete;
    TranslatingLocale& operator=(const TranslatingLocale&) = delete;
    ~TranslatingLocale()
    {
        if (!locale_)
            return;
        uselocale(previous_);
        freelocale(locale_);
    }

private:
    locale_t locale_;
    locale_t previous_;
};

} // namespace

/// The C library's counter of changes that make its remembered translations stale. It does not see a change
/// of LANGUAGE by itself; counting on is the documented way to tell it.
extern "C" int _nl_msg_cat_cntr; // NOLINT(bugprone-reserved-identifier)

namespace {

std::string translated(const char* text, const std::string& language)
{
    const LanguageVariable languageVariable(language);
    const TranslatingLocale locale;
    ++_nl_msg_cat_cntr;
    bindtextdomain(TQ_MESSAGE_DOMAIN, TQ_LOCALE_DIR);
    bind_textdomain_codeset(TQ_MESSAGE_DOMAIN, "UTF-8");
    return dgettext(TQ_MESSAGE_DOMAIN, text);
}

/// A format with its one "%d" filled in. A catalogue that was tampered with is no format to be trusted.
std::string withNumber(std::string format, int number)
{
    const std::size_t place = format.find("%d");
    if (place != std::string::npos)
        format.replace(place, 2, std::to_string(number));
    return format;
}

} // namespace

std::span<const tq::StatusText> tq::statusTexts()
{
    return STATUS_TEXTS;
}

const tq::StatusText* tq::findStatusText(int status)
{
    const auto* found = std::find_if(std::begin(STATUS_TEXTS), std::end(STATUS_TEXTS),
                                     [status](const StatusText& row) { return row.status == status; });
    return found == std::end(STATUS_TEXTS) ? nullptr : found;
}

std::string getECmsg(int status)
{
    const tq::StatusText* row = tq::findStatusText(status);
    return row ? row->text : withNumber(tq::UNKNOWN_STATUS_FORMAT, status);
}

std::string getECmsgl(int status, const char* locale)
{
    const std::optional<std::string> language = languageOf(locale);
    if (!language)
        return getECmsg(status);
    const tq::StatusText* row = tq::findStatusText(status);
    return row ? translated(row->text, *language)
               : withNumber(translated(tq::UNKNOWN_STATUS_FORMAT, *language), status);
}
