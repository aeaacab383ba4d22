// txscan apply as a person runs it: the program on real files, its output
// and its refusals. (Its results on large files are held to the SQL doors'
// in tests/sqlite and tests/duckdb; the engine under it is held to single
// calls in tests/engine.)
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>


namespace {

struct Outcome { int exitCode = 0; std::string out; std::string err; };

std::string slurp(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

// Per test, in a directory of this process's own (removed when it ends):
// ctest runs the tests of this file side by side, and two builds' test runs
// may share the temporary directory.
std::string scratch(const std::string& name) {
    static const struct Directory {
        std::string path = testing::TempDir() + "txscan_apply_XXXXXX";
        Directory() { EXPECT_NE(mkdtemp(path.data()), nullptr) << path; }
        ~Directory() { std::filesystem::remove_all(path); }
    } directory;
    return directory.path + "/" + testing::UnitTest::GetInstance()->current_test_info()->name() + "_" + name;
}

std::string writeFile(const std::string& name, const std::string& bytes) {
    const std::string path = scratch(name);
    std::ofstream(path, std::ios::binary) << bytes;
    return path;
}

std::string shellQuoted(const std::string& word) {
    std::string quoted = "'";
    for (const char c : word) quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return quoted + "'";
}

// `environment` goes before the program: variables, or a wrapper such as timeout.
Outcome applyWith(const std::string& environment, const std::vector<std::string>& arguments) {
    std::string command = environment + " " TXSCAN_PROGRAM " apply --quiet";
    for (const auto& a : arguments) command += " " + shellQuoted(a);
    command += " >" + scratch("stdout") + " 2>" + scratch("stderr");
    const int status = std::system(command.c_str());
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, slurp(scratch("stdout")), slurp(scratch("stderr"))};
}

Outcome apply(const std::vector<std::string>& arguments) { return applyWith("", arguments); }

// Files in, files out, byte for byte: the input file, then the options and
// assignments after it.
TEST(Apply, ReadsAndWritesCsvAsItIs) {
    const struct { std::string input; std::vector<std::string> arguments; std::string output; } cases[] = {
        // quotes, embedded commas, doubled quotes and newlines; blanks kept
        {"a,b\n\"x, y\",\" q \"\"r\"\" \"\n\"two\nlines\",\n", {"n = KCOUNTW(b)"},
         "a,b,n\n\"x, y\",\" q \"\"r\"\" \",2\n\"two\nlines\",,0\n"},
        // CRLF in, CRLF out; no line end at the end of the input
        {"a\r\none two\r\nthree", {"w = KSCANX(a, -1)"}, "a,w\r\none two,two\r\nthree,three\r\n"},
        // a result that needs quotes gets them
        {"a\n\"x,\"\"y z\"\n", {"w = KSCANX(a, 1, ' ')"}, "a,w\n\"x,\"\"y z\",\"x,\"\"y\"\n"},
        {"a,b\n", {"n = KCOUNTW(a)"}, "a,b,n\n"},
        // names in backticks reach any column, and name new ones
        {"first name,Adj. Close*\nAnn Lee,Lee\n", {"`n, w` = KFIND(`FIRST name`, `Adj. Close*`)"},
         "first name,Adj. Close*,\"n, w\"\nAnn Lee,Lee,5\n"},
        // a byte-order mark is not part of the first name, nor written out
        {"\xEF\xBB\xBF" "a,b\nx y,1\n", {"n = KCOUNTW(a)"}, "a,b,n\nx y,1,2\n"},
        // fields are written as they came, quotes and all
        {"a,b\n\"x\",\"y z\"\n", {"n = KCOUNTW(b)"}, "a,b,n\n\"x\",\"y z\",2\n"},
        // numbers read from a column where only a number fits; missing is empty
        {"s,k\nab cd,2\nab cd,\nab cd,x\n", {"w = KSCANX(s, k)"}, "s,k,w\nab cd,2,cd\nab cd,,\nab cd,x,\n"},
        // A bare CR ends a line wherever it stands, as LF and CRLF do; inside
        // quotes it is text. The output keeps the first line's end.
        {"a,b\n1,2\r3,4\r5,6\n", {"n = KCOUNTW(a)"}, "a,b,n\n1,2,1\n3,4,1\n5,6,1\n"},
        {"a,b\r\n1,2\r3,\"x\ry\"\r\n5,6\r", {"n = KCOUNTW(a)"}, "a,b,n\r\n1,2,1\r\n3,\"x\ry\",1\r\n5,6,1\r\n"},
        {"a,b\r1,2\r\r3,4", {"n = KCOUNTW(a)"}, "a,b,n\n1,2,1\n3,4,1\n"},
        {"a,b\n1,2\r\n3,4\n\r5,6\r", {"n = KCOUNTW(a)"}, "a,b,n\n1,2,1\n3,4,1\n5,6,1\n"},
        // --escape: a backslash makes the next byte text, in quotes or not,
        // beside doubled quotes; a new text column that holds one is written escaped.
        {"a\n\"6\\\" pipe\"\n\"say \"\"hi\"\"\"\na\\\\b c\nx\\,y\n",
         {"--escape", "\\", "w = KSCANX(a, 1, ' ')", "n = KCOUNTW(a, ' ')"},
         "a,w,n\n\"6\\\" pipe\",\"6\"\"\",2\n\"say \"\"hi\"\"\",say,2\na\\\\b c,\"a\\\\b\",2\nx\\,y,\"x,y\",1\n"},
        // columns from columns, call routines, nested calls; --length cuts texts
        {"name\nAnna Maria Schmidt\nJosé García\n\n",
         {"--length", "4", "last = KSCANX(name, -1)", "(pos, len) = CALL KSCANX(name, 2)", "n = KCOUNTW(last)",
          "at = KFIND(name, KSCANX(name, 2))", "bad = KCOUNTW(KSCANX(name, .))"},
         "name,last,pos,len,n,at,bad\nAnna Maria Schmidt,Schm,6,5,1,6,\nJosé García,Garc,6,6,1,6,\n"},
        // the file's encoding is kept; bytes it does not hold pass through
        {"s\nGr\xfc\xdf" "e aus K\xf6ln\n", {"--encoding", "ISO-8859-1", "w = KSCANX(s, -1)", "k = KFIND(s, 'köln', 'i')"},
         "s,w,k\nGr\xfc\xdf" "e aus K\xf6ln,K\xf6ln,11\n"},
        {"s\n\x93\xfa\x96\x7b \x8c\xea\n", {"--encoding", "Shift_JIS", "w = KSCANX(s, -1)", "k = KFIND(s, 'köln', 'i')"},
         "s,w,k\n\x93\xfa\x96\x7b \x8c\xea,\x8c\xea,0\n"},
        {"s\nab \xff\xfe\n", {"w = KSCANX(s, -1)", "k = KFIND(s, 'köln', 'i')"}, "s,w,k\nab \xff\xfe,\xff\xfe,0\n"},
    };
    for (const auto& c : cases) {
        std::vector<std::string> arguments = {writeFile("in.csv", c.input)};
        arguments.insert(arguments.end(), c.arguments.begin(), c.arguments.end());
        const Outcome run = apply(arguments);
        EXPECT_EQ(0, run.exitCode) << c.input << run.err;
        EXPECT_EQ(c.output, run.out) << c.input;
    }
}

TEST(Apply, RefusesBadInputWithTheRecordAtFault) {
    const std::string good = writeFile("good.csv", "a,b\n1,2\n");
    const struct {
        std::string input;
        std::vector<std::string> options;
        const char* assignment;
        const char* error;    // a part of the one-line message; "" for a run that succeeds
        const char* output;
    } cases[] = {
        {good, {}, "n = KCOUNTW(c)", "unknown column c", ""},
        {good, {}, "n = KFIND(a)", "KFIND takes 2 to 4 arguments, not 1", ""},
        {good, {}, "a = KCOUNTW(b)", "a column named a exists already", ""},
        {good, {}, "n = KSCANX(a, 'x')", "argument 2 of KSCANX takes a number", ""},
        {good, {}, "n = CALL KSCANX(a, 1)", "(POSITION, LENGTH)", ""},
        {good, {}, "n = KCOUNTW(`a)", "a name in backticks left open or empty at column 13", ""},
        {writeFile("short.csv", "a,b\n\"1\n2\",3\n4\n5,6\n"), {}, "n = KCOUNTW(a)", "record 3 (line 4): 1 field where", ""},
        {writeFile("open.csv", "a,b\n1,2\n3,\"y\n"), {}, "n = KCOUNTW(a)", "record 3 (line 3): a quoted field is still open", ""},
        {writeFile("empty.csv", ""), {}, "n = KCOUNTW(a)", "no header row", ""},
        {"/nonexistent/in.csv", {}, "n = KCOUNTW(a)", "cannot open", ""},
        {writeFile("skip.csv", "a,b\n1\n2,3\n4,\"5\"x\n6,7,8\n"), {"--on-error", "skip"}, "n = KCOUNTW(a)", "",
         "a,b,n\n2,3,1\n"},
        // a skipped line longer than the read buffer moves the batch's cells
        {writeFile("long.csv", "a,b\n\"x \"\"y\"\"\",1\nz,2\nq\"" + std::string(3 << 20, 'q') + "\n\"w \"\"v\",3\n"),
         {"--on-error", "skip"}, "n = KSCANX(a, 2)", "", "a,b,n\n\"x \"\"y\"\"\",1,\"\"\"y\"\"\"\nz,2, \n\"w \"\"v\",3,\"\"\"v\"\n"},
    };
    for (const auto& c : cases) {
        std::vector<std::string> arguments = c.options;
        arguments.push_back(c.input);
        arguments.push_back(c.assignment);
        const Outcome run = apply(arguments);
        EXPECT_EQ(*c.error ? 2 : 0, run.exitCode) << c.assignment << " " << c.input;
        EXPECT_NE(std::string::npos, run.err.find(c.error)) << run.err;
        if (*c.error) {
            EXPECT_EQ(1, std::count(run.err.begin(), run.err.end(), '\n')) << run.err;
        }
        EXPECT_EQ(c.output, run.out) << c.input;
    }
}

// A system that refuses threads (a pids or memory limit) gets the same
// output from the workers that did start, or from the calling thread alone,
// and a warning; never a hang. `timeout` turns a hang into a failure.
TEST(Apply, RunsOnTheThreadsTheSystemGives) {
    const std::string input = std::string(TXSCAN_EXAMPLES "/people.csv");
    const std::vector<std::string> arguments = {"--threads", "8", input, "last = KSCANX(name, -1)",
                                                "n = KCOUNTW(comment)"};
    const Outcome expected = apply(arguments);
    ASSERT_EQ(0, expected.exitCode) << expected.err;
    // The third thread; every thread from the second on, the reader's too.
    for (const char* refused : {"3", "2+", "1+"}) {
        const Outcome run = applyWith(std::string("ASAN_OPTIONS=\"$ASAN_OPTIONS:verify_asan_link_order=0\" ") +
                                          "LD_PRELOAD=" TXSCAN_REFUSE_THREAD_SHIM " TXSCAN_REFUSE_THREAD=" + refused +
                                          " timeout 120",
                                      arguments);
        EXPECT_EQ(0, run.exitCode) << refused << ": " << run.err;
        EXPECT_EQ(expected.out, run.out) << refused;
        EXPECT_NE(std::string::npos, run.err.find("worker threads; running on those")) << refused << ": " << run.err;
    }
}

// The output file is written only when the run succeeds. A run killed
// outright leaves its temporary file; the next run removes it when its
// writer is gone, and leaves a live writer's alone.
TEST(Apply, WritesTheOutputFileOnlyWhenTheRunSucceeds) {
    const std::string output = scratch("result.csv");
    const std::string stale = output + ".partial-999999999-abcdef";
    const std::string live = output + ".partial-" + std::to_string(getpid()) + "-abcdef";
    std::remove(output.c_str());
    EXPECT_EQ(2, apply({writeFile("bad.csv", "a\n1\n2,3\n"), "-o", output, "n = KCOUNTW(a)"}).exitCode);
    EXPECT_FALSE(std::ifstream(output).good());
    std::ofstream(stale) << "a,n\n";
    std::ofstream(live) << "a,n\n";
    EXPECT_EQ(0, apply({writeFile("ok.csv", "a\n1\n"), "-o", output, "n = KCOUNTW(a)"}).exitCode);
    EXPECT_EQ("a,n\n1,1\n", slurp(output));
    EXPECT_FALSE(std::ifstream(stale).good());
    EXPECT_TRUE(std::ifstream(live).good());
    for (const auto& path : {output, live}) std::remove(path.c_str());
}

}  // namespace
