#pragma once

#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace fexo::agent {

// An application's desktop entry (a .desktop file), found by its id as launchers find it, and
// the command that launching it runs, as `gio launch` builds it.
// Thread rules: a value; any thread.
class DesktopEntry {
public:
    // The entry "<id>.desktop" in $XDG_DATA_HOME/applications, then in each of $XDG_DATA_DIRS'
    // applications folders (the defaults when unset); an id whose dashes stand for subfolders
    // ("vendor-app" for vendor/app.desktop) is found there too. Nothing, with `reason` in
    // words, when there is none or it is not an application that can be launched.
    static std::optional<DesktopEntry> find(const std::string& id, std::string& reason);
    // The entry in `file`.
    static std::optional<DesktopEntry> read(const std::filesystem::path& file, const std::string& id,
                                            std::string& reason);

    const std::filesystem::path& file() const { return file_; }
    const std::string& id() const { return id_; }
    // DBusActivatable=true: launched through org.freedesktop.Application on the bus name `id`.
    bool dbusActivatable() const;
    // The object path of that activation: the id with '.' as '/' and '-' as '_'.
    std::string objectPath() const;
    // Path=, the folder it runs in; empty for the launcher's own.
    std::string workingDirectory() const;

    // The program and arguments that launching it with no files runs: Exec's field codes
    // expanded (%f %F %u %U to nothing, %i to --icon and the icon, %c to the name in this
    // locale, %k to the file, %% to %, the deprecated ones to nothing), quoting undone, and,
    // for Terminal=true, a terminal emulator in front. Nothing, with `reason`, when Exec is
    // missing or malformed.
    std::optional<std::vector<std::string>> commandLine(std::string& reason) const;

    // The value of `key` in this locale (key[ll_CC@mod], key[ll_CC], key[ll@mod], key[ll], key).
    std::optional<std::string> localized(const std::string& key) const;

private:
    std::optional<std::string> value(const std::string& key) const;
    bool boolean(const std::string& key) const;

    std::filesystem::path file_;
    std::string id_;
    std::map<std::string, std::string> keys_; // of the group [Desktop Entry], escapes undone
};

// Splits `text` into words as a POSIX shell does without expansion: blanks separate, single
// quotes keep everything, double quotes keep everything but \$ \` \" \\ and \newline, a
// backslash elsewhere keeps the next character. Nothing when a quote is not closed.
std::optional<std::vector<std::string>> shellWords(const std::string& text);

} // namespace fexo::agent
