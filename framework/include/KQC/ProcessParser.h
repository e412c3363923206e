#pragma once
// The process parser: runs a process status tool with a list of columns
// and turns its output into process records.
//
// A parser is initialised once with the name of a column set ("kq_ps": the
// columns an agent shows for container processes). Subclasses say which
// program to run (getCommand) and how the column list is written on its
// command line (getStrParameters); the attribute names of the records are
// the column names as written there. The last column may hold blanks (the
// command line), so each output line is split into as many fields as there
// are columns, the last taking the rest of the line.
//
// Query options: `text` keeps only processes with a column that contains it
// (empty: all), `number` keeps at most that many (0 or less: all), and
// `flag` orders the result by descending process id instead of ascending.
//
// Thread safety: initialize() must complete before the parser is shared;
// the queries themselves keep no state in the parser and may run on several
// threads at once.
#include "KQC/Exec.h"

#include <map>
#include <string>
#include <vector>

namespace KQC {

class KQCProcessInfo {
public:
    // 0 with the attribute's text; -1 when the record lacks it.
    int get(const std::string& name, std::string& value) const;
    void set(const std::string& name, const std::string& value) { m_attributes[name] = value; }
    void remove(const std::string& name) { m_attributes.erase(name); }
    const std::map<std::string, std::string>& attributes() const { return m_attributes; }

private:
    std::map<std::string, std::string> m_attributes;
};

typedef std::vector<KQCProcessInfo> KQCProcessList;

class KQCProcessParser {
public:
    struct ParserOptions {
        ParserOptions(const std::string& text, int number, bool flag) : text(text), number(number), flag(flag) {}
        virtual ~ParserOptions() = default;
        std::string text;
        int number;
        bool flag;
    };

    virtual ~KQCProcessParser() = default;

    // Chooses the column set `name`. 0, or -1 with the message set for an
    // unknown set.
    int initialize(const std::string& name);
    bool isValid() const { return !m_columns.empty(); }
    const std::vector<std::string>& getColumns() const { return m_columns; }

    // The program to run; "ps" by default.
    virtual std::string getCommand();
    // The column list as the program takes it: the names joined with ",".
    virtual std::string getStrParameters(const ParserOptions& options);

    // Runs argv to its end, collecting its standard output. 0, or -1 with
    // the message set when it cannot start or does not exit with 0.
    int runPsProg(ExecutionArgs& argv, std::string& output);
    // Appends one record per output line, named by the columns of
    // getStrParameters(options). Lines with fewer fields than columns (a
    // header, a blank, garbage) are skipped. Always 0.
    int fillProcessList(const std::string& output, KQCProcessList& out, const ParserOptions& options);
    // Applies the options' filter, order and limit (see above); the process
    // id is the attribute "pid", or "vpid" when there is no "pid". Always 0.
    static int optimizeProcesses(KQCProcessList& list, const ParserOptions& options);

private:
    std::vector<std::string> m_columns;
};

} // namespace KQC
