#pragma once
// The console's command line: one tree of commands (CLI11) built afresh for
// every parse, so that the global command line and every line of a batch are
// read by the same rules.
//
// A command group (agent/Commands*.cpp) adds its commands with `add`: the
// command's synopsis line (shown by --help), its options and positionals
// bound to values that live as long as the CommandLine, and a Build that,
// once the whole line has been read, checks those values and returns the
// Runner. Nothing runs while parsing; a malformed line throws UsageError.
//
// Not thread safe; one CommandLine per parse.
#include "Console.h"

#include <CLI/CLI.hpp>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace kqagent {

// Called after the whole line was read: UsageError for a bad value, else
// the work to do.
typedef std::function<Runner()> Build;

class CommandLine {
public:
    // `program` is the first word of synopses ("kqagent").
    explicit CommandLine(const std::string& program);

    // The console itself: global options go here, commands under it.
    CLI::App& root() { return *m_root; }

    // Adds command `name` under `parent` (root() or a group). `synopsis` is
    // its full form without the program name ("info CT [--mask M]").
    // `define` declares options and positionals on the new command (bind
    // them to `value<T>()` storage) and returns its Build.
    CLI::App& add(CLI::App& parent, const std::string& name, const std::string& synopsis,
                  const std::function<Build(CLI::App&)>& define);

    // The command `name` under `parent`, made as a group (a command whose
    // next word is one of its subcommands) when it does not exist yet. A
    // command added with `add` may be extended with subcommands this way.
    CLI::App& group(CLI::App& parent, const std::string& name, const std::string& summary);

    // Adds a synopsis line shown by --help for `command` (root() included).
    void describe(const CLI::App& command, const std::string& synopsis);

    // Storage for a parsed value, alive as long as this CommandLine.
    template <class T>
    T& value(T initial = T())
    {
        auto stored = std::make_shared<T>(std::move(initial));
        m_values.push_back(stored);
        return *stored;
    }

    // Reads `words` (without the program name). Returns the Runner of the
    // command named, or an empty Runner when help was asked for (the help
    // text is then in `help`). UsageError (one line) when malformed.
    Runner parse(const std::vector<std::string>& words, std::string& help);

    // The synopses of `command` and of every command beneath it, one per
    // line, each starting with the program name.
    std::string synopses(const CLI::App& command) const;

private:
    CLI::App& made(CLI::App& parent, const std::string& name, const std::string& summary);
    const CLI::App* chosen() const;
    Runner buildChosen();
    // The one-line usage message for a parse failure.
    std::string explain(const CLI::ParseError& error) const;

    std::string m_program;
    std::unique_ptr<CLI::App> m_root;
    std::map<const CLI::App*, Build> m_builds;
    // Synopses in the order the commands were added.
    std::vector<std::pair<const CLI::App*, std::string>> m_synopses;
    std::vector<std::shared_ptr<void>> m_values;
};

// Every command of the console (the groups of Commands.h) on `cli`.
void addAllCommands(CommandLine& cli);

// One line of a batch: shell-style words read by the same rules as a
// command line. UsageError when malformed, when it asks for help or when it
// is itself a batch.
Runner parseBatchLine(const std::string& line);

} // namespace kqagent
