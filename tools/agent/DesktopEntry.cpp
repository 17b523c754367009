#include <agent/DesktopEntry.hpp>

#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <sstream>

namespace fexo::agent {

namespace {

// A desktop entry is a few kilobytes; anything far larger is not one.
constexpr std::size_t maximumEntryBytes = 1 << 20;

std::vector<std::string> split(const std::string& text, char separator)
{
    std::vector<std::string> parts;
    std::istringstream stream(text);
    for (std::string part; std::getline(stream, part, separator);)
        if (!part.empty()) parts.push_back(part);
    return parts;
}

std::vector<std::filesystem::path> applicationFolders()
{
    std::vector<std::filesystem::path> folders;
    const char* dataHome = std::getenv("XDG_DATA_HOME");
    const char* home = std::getenv("HOME");
    if (dataHome != nullptr && dataHome[0] == '/')
        folders.emplace_back(std::filesystem::path(dataHome) / "applications");
    else if (home != nullptr && home[0] == '/')
        folders.emplace_back(std::filesystem::path(home) / ".local/share/applications");
    const char* dataDirs = std::getenv("XDG_DATA_DIRS");
    const std::string dirs = dataDirs != nullptr && dataDirs[0] != '\0' ? dataDirs : "/usr/local/share:/usr/share";
    for (const auto& dir : split(dirs, ':'))
        if (dir.front() == '/') folders.emplace_back(std::filesystem::path(dir) / "applications");
    return folders;
}

// The files an id can name under one applications folder: "<id>.desktop", and each reading of
// its dashes as subfolders.
void candidates(const std::filesystem::path& folder, const std::string& id, std::vector<std::filesystem::path>& out)
{
    out.push_back(folder / (id + ".desktop"));
    for (std::size_t dash = id.find('-'); dash != std::string::npos; dash = id.find('-', dash + 1))
        if (dash > 0 && dash + 1 < id.size()) candidates(folder / id.substr(0, dash), id.substr(dash + 1), out);
}

// A string value's escapes undone: \s \n \t \r \\ (others kept as they are).
std::string unescaped(const std::string& raw)
{
    std::string value;
    for (std::size_t i = 0; i < raw.size(); ++i) {
        if (raw[i] != '\\' || i + 1 == raw.size()) {
            value += raw[i];
            continue;
        }
        switch (raw[++i]) {
        case 's':
            value += ' ';
            break;
        case 'n':
            value += '\n';
            break;
        case 't':
            value += '\t';
            break;
        case 'r':
            value += '\r';
            break;
        case '\\':
            value += '\\';
            break;
        default:
            value += '\\', value += raw[i];
        }
    }
    return value;
}

// `text` quoted for shellWords(): single quotes, each ' written as '\''.
std::string quoted(const std::string& text)
{
    std::string result = "'";
    for (const char c : text) result += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return result + "'";
}

bool isExecutable(const std::string& program)
{
    if (program.find('/') != std::string::npos) return ::access(program.c_str(), X_OK) == 0;
    const char* path = std::getenv("PATH");
    for (const auto& dir : split(path != nullptr ? path : "/usr/local/bin:/usr/bin:/bin", ':'))
        if (::access((dir + "/" + program).c_str(), X_OK) == 0) return true;
    return false;
}

} // namespace

std::optional<std::vector<std::string>> shellWords(const std::string& text)
{
    std::vector<std::string> words;
    std::string word;
    bool inWord = false;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        if (c == ' ' || c == '\t' || c == '\n') {
            if (inWord) words.push_back(std::move(word)), word.clear(), inWord = false;
        } else if (c == '#' && !inWord) {
            while (i < text.size() && text[i] != '\n') ++i; // a comment, to the end of its line
        } else if (c == '\'') {
            const auto end = text.find('\'', i + 1);
            if (end == std::string::npos) return std::nullopt;
            word += text.substr(i + 1, end - i - 1), inWord = true, i = end;
        } else if (c == '"') {
            inWord = true;
            for (++i;; ++i) {
                if (i >= text.size()) return std::nullopt;
                if (text[i] == '"') break;
                if (text[i] == '\\' && i + 1 < text.size() &&
                    std::string_view("$`\"\\\n").find(text[i + 1]) != std::string_view::npos) {
                    if (text[++i] != '\n') word += text[i];
                } else {
                    word += text[i];
                }
            }
        } else if (c == '\\') {
            if (i + 1 < text.size() && text[++i] != '\n') word += text[i], inWord = true;
        } else {
            word += c, inWord = true;
        }
    }
    if (inWord) words.push_back(std::move(word));
    return words;
}

std::optional<DesktopEntry> DesktopEntry::find(const std::string& id, std::string& reason)
{
    std::vector<std::filesystem::path> files;
    for (const auto& folder : applicationFolders()) candidates(folder, id, files);
    for (const auto& file : files) {
        std::error_code error;
        if (std::filesystem::is_regular_file(file, error)) return read(file, id, reason);
    }
    reason = "no desktop entry " + id + ".desktop in the applications folders";
    return std::nullopt;
}

std::optional<DesktopEntry> DesktopEntry::read(const std::filesystem::path& file, const std::string& id,
                                               std::string& reason)
{
    std::ifstream stream(file, std::ios::binary);
    std::string text(maximumEntryBytes + 1, '\0');
    stream.read(text.data(), static_cast<std::streamsize>(text.size()));
    text.resize(static_cast<std::size_t>(stream.gcount()));
    if (!stream.eof() || text.size() > maximumEntryBytes) {
        reason = "cannot read " + file.string();
        return std::nullopt;
    }
    DesktopEntry entry;
    entry.file_ = file;
    entry.id_ = id;
    bool inEntry = false;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        if (!line.empty() && line.back() == '\r') line.pop_back();
        if (line.empty() || line.front() == '#') continue;
        if (line.front() == '[') {
            inEntry = line == "[Desktop Entry]";
            continue;
        }
        const auto equals = line.find('=');
        if (!inEntry || equals == std::string::npos) continue;
        std::string key = line.substr(0, equals);
        while (!key.empty() && key.back() == ' ') key.pop_back();
        std::string raw = line.substr(equals + 1);
        raw.erase(0, raw.find_first_not_of(' ') == std::string::npos ? raw.size() : raw.find_first_not_of(' '));
        entry.keys_.try_emplace(key, unescaped(raw)); // the first of a repeated key counts
    }
    if (entry.value("Type") != "Application") {
        reason = file.string() + " is not an application's desktop entry";
        return std::nullopt;
    }
    if (const auto tryExec = entry.value("TryExec"); tryExec && !isExecutable(*tryExec)) {
        reason = file.string() + ": its TryExec program " + *tryExec + " is not installed";
        return std::nullopt;
    }
    return entry;
}

std::optional<std::string> DesktopEntry::value(const std::string& key) const
{
    const auto found = keys_.find(key);
    return found == keys_.end() ? std::nullopt : std::optional(found->second);
}

bool DesktopEntry::boolean(const std::string& key) const
{
    return value(key) == "true";
}

bool DesktopEntry::dbusActivatable() const
{
    return boolean("DBusActivatable");
}

std::string DesktopEntry::objectPath() const
{
    std::string path = "/" + id_;
    for (char& c : path) c = c == '.' ? '/' : c == '-' ? '_' : c;
    return path;
}

std::string DesktopEntry::workingDirectory() const
{
    return value("Path").value_or("");
}

std::optional<std::string> DesktopEntry::localized(const std::string& key) const
{
    std::string locale;
    for (const char* name : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
        const char* set = std::getenv(name);
        if (set != nullptr && set[0] != '\0') {
            locale = set;
            break;
        }
    }
    // ll_CC.ENCODING@MODIFIER, every part but the language optional.
    std::string modifier;
    if (const auto at = locale.find('@'); at != std::string::npos) modifier = locale.substr(at), locale.resize(at);
    if (const auto dot = locale.find('.'); dot != std::string::npos) locale.resize(dot);
    const std::string language = locale.substr(0, locale.find('_'));
    std::vector<std::string> tried;
    if (!locale.empty() && locale != "C" && locale != "POSIX") {
        if (!modifier.empty()) tried.push_back(locale + modifier);
        tried.push_back(locale);
        if (!modifier.empty()) tried.push_back(language + modifier);
        tried.push_back(language);
    }
    for (const auto& suffix : tried)
        if (const auto found = value(key + "[" + suffix + "]")) return found;
    return value(key);
}

std::optional<std::vector<std::string>> DesktopEntry::commandLine(std::string& reason) const
{
    const auto exec = value("Exec");
    if (!exec || exec->empty()) {
        reason = file_.string() + " has no Exec";
        return std::nullopt;
    }
    std::string expanded;
    for (std::size_t i = 0; i < exec->size(); ++i) {
        if ((*exec)[i] != '%' || i + 1 == exec->size()) {
            expanded += (*exec)[i];
            continue;
        }
        switch ((*exec)[++i]) {
        case '%':
            expanded += '%';
            break;
        case 'i':
            if (const auto icon = value("Icon"); icon && !icon->empty()) expanded += "--icon " + quoted(*icon);
            break;
        case 'c':
            if (const auto name = localized("Name")) expanded += quoted(*name);
            break;
        case 'k':
            expanded += quoted(file_.string());
            break;
        default:
            break; // no files to pass, and the deprecated codes expand to nothing
        }
    }
    auto words = shellWords(expanded);
    if (!words || words->empty()) {
        reason = file_.string() + ": its Exec cannot be read (" + *exec + ")";
        return std::nullopt;
    }
    if (boolean("Terminal")) {
        const char* terminal = isExecutable("x-terminal-emulator") ? "x-terminal-emulator" : "xterm";
        if (!isExecutable(terminal)) {
            reason = file_.string() + " runs in a terminal, and no terminal emulator is installed";
            return std::nullopt;
        }
        words->insert(words->begin(), {terminal, "-e"});
    }
    return words;
}

} // namespace fexo::agent
