#include <dlfcn.h>
#include <histedit.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <cwchar>
#include <filesystem>

#include "console/line_input.h"
#include "console/terminal.h"
#include "text/names.h"

namespace dpdu {
namespace {

constexpr int kInterruptionPollMs = 100;
constexpr int kHistoryLines = 1000;

// One byte of standard input; -1 at its end or after an interruption. A read of the C library would
// go on after an interruption.
int NextByte() {
    for (;;) {
        if (WasInterrupted()) return -1;
        pollfd wait = {STDIN_FILENO, POLLIN, 0};
        if (::poll(&wait, 1, kInterruptionPollMs) <= 0) continue;
        unsigned char byte = 0;
        const ssize_t count = ::read(STDIN_FILENO, &byte, 1);
        if (count == 1) return byte;
        if (count == 0 || errno != EINTR) return -1;
    }
}

// Functions of libedit. It is loaded here, so that the program also runs where it is not installed;
// Debian and others give its file different names.
struct EditLibrary {
    decltype(&::el_init) init = nullptr;
    decltype(&::el_end) end = nullptr;
    decltype(&::el_gets) gets = nullptr;
    decltype(&::el_set) set = nullptr;
    decltype(&::el_get) get = nullptr;
    decltype(&::el_line) line = nullptr;
    decltype(&::el_insertstr) insert = nullptr;
    decltype(&::el_deletestr) erase = nullptr;
    decltype(&::el_resize) resize = nullptr;
    decltype(&::history_init) history_init = nullptr;
    decltype(&::history_end) history_end = nullptr;
    decltype(&::history) history = nullptr;

    bool Load() {
        void* file = nullptr;
        for (const char* name : {"libedit.so.2", "libedit.so.0"}) {
            if (!file) file = ::dlopen(name, RTLD_NOW | RTLD_LOCAL);
        }
        return file && Find(file, "el_init", &init) && Find(file, "el_end", &end) &&
               Find(file, "el_gets", &gets) && Find(file, "el_set", &set) &&
               Find(file, "el_get", &get) && Find(file, "el_line", &line) &&
               Find(file, "el_insertstr", &insert) && Find(file, "el_deletestr", &erase) &&
               Find(file, "el_resize", &resize) && Find(file, "history_init", &history_init) &&
               Find(file, "history_end", &history_end) && Find(file, "history", &history);
    }

private:
    template <typename Function>
    static bool Find(void* file, const char* name, Function* function) {
        *function = reinterpret_cast<Function>(::dlsym(file, name));
        return *function != nullptr;
    }
};

// $XDG_STATE_HOME/Tarvik/dpdu/history; empty: the user has no folder for it.
std::string HistoryFile() {
    std::filesystem::path folder = PathOf(EnvironmentText("XDG_STATE_HOME"));
    if (folder.empty()) {
        const std::string home = EnvironmentText("HOME");
        if (home.empty()) return "";
        folder = PathOf(home) / ".local" / "state";
    }
    folder = folder / "Tarvik" / "dpdu";
    std::error_code error;
    std::filesystem::create_directories(folder, error);
    return error ? "" : TextOf(folder / "history");
}

std::string CommonStart(const std::vector<std::string>& words) {
    std::string start = words.front();
    for (const std::string& word : words) {
        const auto [end, ignored] =
            std::mismatch(start.begin(), start.end(), word.begin(), word.end());
        start.erase(end, start.end());
    }
    return start;
}

}  // namespace

struct LineInput::System {
    EditLibrary library;
    Complete complete;
    EditLine* editor = nullptr;  // null: no libedit
    History* history = nullptr;
    std::string history_file;
    std::string prompt;

    static System* Of(EditLine* editor, const EditLibrary& library) {
        void* system = nullptr;
        library.get(editor, EL_CLIENTDATA, &system);
        return static_cast<System*>(system);
    }

    void Begin();
    void End();
    void BeginHistory();
    void Remember(const char* line);
    unsigned char CompleteWord();
    std::optional<std::string> ReadEdited();
    std::optional<std::string> ReadPlain() const;
};

namespace {

const EditLibrary* loaded = nullptr;  // for functions that libedit calls

int NextCharacter(EditLine*, wchar_t* character) {
    std::mbstate_t state{};
    for (;;) {
        const int byte = NextByte();
        if (byte < 0) return 0;
        // Ctrl-D that was typed while a step was executed; libedit would quote the next character.
        if (byte == 0) continue;
        const char part = static_cast<char>(byte);
        const std::size_t used = std::mbrtowc(character, &part, 1, &state);
        if (used == static_cast<std::size_t>(-2)) continue;  // more bytes belong to it
        if (used == static_cast<std::size_t>(-1)) {
            state = {};
            continue;  // not a character of this locale
        }
        return 1;
    }
}

}  // namespace

void LineInput::System::Begin() {
    if (!library.Load()) return;
    std::setlocale(LC_CTYPE, "");
    editor = library.init("dpdu", stdin, stderr, stderr);
    if (!editor) return;
    loaded = &library;
    library.set(editor, EL_CLIENTDATA, this);
    library.set(editor, EL_EDITOR, "emacs");
    library.set(editor, EL_GETCFN, NextCharacter);
    library.set(
        editor, EL_PROMPT, +[](EditLine* of) { return System::Of(of, *loaded)->prompt.data(); });
    library.set(
        editor, EL_ADDFN, "dpdu-complete", "Completes a word",
        +[](EditLine* of, int) { return System::Of(of, *loaded)->CompleteWord(); });
    library.set(editor, EL_BIND, "^I", "dpdu-complete", nullptr);
    BeginHistory();
}

void LineInput::System::BeginHistory() {
    history = library.history_init();
    if (!history) return;
    HistEvent event{};
    library.history(history, &event, H_SETSIZE, kHistoryLines);
    library.history(history, &event, H_SETUNIQUE, 1);
    library.set(editor, EL_HIST, library.history, history);
    history_file = HistoryFile();
    if (!history_file.empty()) library.history(history, &event, H_LOAD, history_file.c_str());
}

void LineInput::System::End() {
    if (history) {
        HistEvent event{};
        // Only the user may read the file: keys may be among the lines.
        if (!history_file.empty()) library.history(history, &event, H_SAVE, history_file.c_str());
        library.history_end(history);
    }
    if (editor) library.end(editor);
}

void LineInput::System::Remember(const char* line) {
    HistEvent event{};
    const bool is_empty = std::string(line).find_first_not_of(" \t\r\n") == std::string::npos;
    if (history && !is_empty) library.history(history, &event, H_ENTER, line);
}

unsigned char LineInput::System::CompleteWord() {
    const LineInfo* info = library.line(editor);
    const std::string before(info->buffer, info->cursor);
    const std::vector<std::string> words = complete(before);
    if (words.empty()) return CC_REFRESH_BEEP;
    const std::size_t blank = before.find_last_of(" \t");
    const std::size_t typed = before.size() - (blank == std::string::npos ? 0 : blank + 1);
    std::string rest = CommonStart(words).substr(typed);
    if (words.size() == 1 && !words.front().ends_with('=')) rest += ' ';
    if (!rest.empty()) {
        library.insert(editor, rest.c_str());
        return CC_REFRESH;
    }
    std::string list = "\n";
    for (const std::string& word : words)
        list += word + "  ";
    WriteText(stderr, list + "\n");
    return CC_REDISPLAY;
}

std::optional<std::string> LineInput::System::ReadEdited() {
    library.resize(editor);  // the window may have another size than before
    // Otherwise it would be set after the prompt is shown, and change what is typed in between.
    library.set(editor, EL_PREP_TERM, 1);
    int count = 0;
    const char* line = library.gets(editor, &count);
    if (!line || count <= 0 || WasInterrupted()) return std::nullopt;
    Remember(line);
    std::string text(line, static_cast<std::size_t>(count));
    text.erase(text.find_last_not_of("\r\n") + 1);
    return text;
}

std::optional<std::string> LineInput::System::ReadPlain() const {
    WriteText(stderr, prompt);
    std::string line;
    for (;;) {
        const int byte = NextByte();
        if (byte < 0) return std::nullopt;
        if (byte == '\n') return line;
        line += static_cast<char>(byte);
    }
}

LineInput::LineInput(Complete complete) : system_(std::make_unique<System>()) {
    system_->complete = std::move(complete);
    system_->Begin();
}

LineInput::~LineInput() { system_->End(); }

std::optional<std::string> LineInput::Read(const std::string& prompt) {
    system_->prompt = prompt;
    return system_->editor ? system_->ReadEdited() : system_->ReadPlain();
}

}  // namespace dpdu
