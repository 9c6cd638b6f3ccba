// Line output and the nesting trace.
#include <unistd.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>

#include "csTrace.h"

using namespace tmi;

namespace {

struct FakeClock {
    TcsOutput::Clock::time_point fNow = TcsOutput::Clock::now();
    void Advance(int aMs) { fNow += std::chrono::milliseconds(aMs); }
};

}  // namespace

TEST(Output, PrefixesIndentAndDelimiter) {
    std::vector<std::string> lines;
    TcsOutput out;
    out.SetStorage(&lines);
    out.SetMode(mmMemory);
    out.InprintDate = false;
    out.InprintTime = false;
    FakeClock clock;
    out.Now = [&] { return clock.fNow; };
    out.InprintDateTime = clock.fNow;
    clock.Advance(7);
    out.Print("first");
    out.Indent();
    clock.Advance(1500);
    out.Print("second %s of %d", {"line", "2"});
    out.Print(out.DelimLine);
    out.Print("");
    out.ClearIndent();
    for (int i = 0; i < 1000; ++i) out.Indent();
    out.Print("deep");
    ASSERT_EQ(lines.size(), 5u);
    EXPECT_EQ(lines[0], "007: first");  // a tick below a second: three digits
    EXPECT_EQ(lines[1], "00:00:01:500:   second line of 2");
    EXPECT_EQ(lines[2], std::string(100, '='));  // the delimiter stands alone
    EXPECT_EQ(lines[3], "");
    EXPECT_EQ(lines[4], "000: deep");  // 1000 levels and more print without indent
}

TEST(Output, DateAndTimeForm) {
    TcsOutput out;
    out.InprintTick = false;
    const std::string s = out.GetDateTimeString();
    // "dd/mm/yyyy hh:mm:ss:zzz: "
    ASSERT_EQ(s.size(), 25u);
    EXPECT_EQ(s[2], '/');
    EXPECT_EQ(s[5], '/');
    EXPECT_EQ(s[13], ':');
    EXPECT_EQ(s.substr(23), ": ");
    out.InprintDate = out.InprintTime = false;
    EXPECT_EQ(out.GetDateTimeString(), "");
}

TEST(Output, FileModeAppendsAndCallsOnPrintWithTheMessage) {
    const auto path = std::filesystem::temp_directory_path() / ("tmi" + std::to_string(::getpid()) + "_output_test.log");
    std::filesystem::remove(path);
    std::vector<std::string> printed;
    {
        TcsOutput out;
        out.SetFileName(path.string());
        out.SetMode(mmFile);
        out.InprintDate = out.InprintTime = out.InprintTick = false;
        out.OnPrint = [&](TcsOutput&, const std::string& m) { printed.push_back(m); };
        out.PrintAndIndent("a");
        out.PrintAndUnindent("b");
        EXPECT_TRUE(out.Ready());
    }
    {
        TcsOutput out;
        out.SetFileName(path.string());
        out.SetMode(mmFile);
        out.InprintDate = out.InprintTime = out.InprintTick = false;
        out.Print("c");
    }
    std::ifstream in(path);
    const std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    EXPECT_EQ(text, "a\nb\nc\n");
    EXPECT_EQ(printed, (std::vector<std::string>{"a", "b"}));
    std::filesystem::remove(path);

    TcsOutput bad;
    bad.SetFileName("/nonexistent/dir/x.log");
    bad.SetMode(mmFile);
    EXPECT_THROW(bad.Print("x"), EcsOutput);
}

TEST(Trace, EnterLeaveAndTheExceptOnlyMode) {
    TcsTrace trace;
    trace.Output().InprintDate = trace.Output().InprintTime = false;
    trace.OnPrintHeader = [](TcsTrace& t) { t.Print("HEADER"); };
    trace.Enter("Outer", "x=1");
    trace.Enter("Inner");
    trace.Leave("done");
    EXPECT_EQ(trace.Storage(), (std::vector<std::string>{"Enter:0:Outer: x=1", "  Enter:1:Inner: ", "  Leave:1:Inner: done"}));
    trace.AddError("bad\r\nthing");
    trace.Leave();
    // The outermost call has left: the trace starts over with the header.
    EXPECT_EQ(trace.Storage(), (std::vector<std::string>{"HEADER"}));
    ASSERT_EQ(trace.Exceptions().size(), 1u);
    EXPECT_EQ(trace.Exceptions()[0], "Exception=, Message=bad  thing, Handled=False");
    trace.SetMode(tmTraceAll);
    trace.Leave();
    EXPECT_EQ(trace.Storage().back(), "Leave:0:Не найдено: ");
}

TEST(Trace, AllModeKeepsEverythingAndFilesOfQuietRunsGo) {
    const auto quiet = std::filesystem::temp_directory_path() / ("tmi" + std::to_string(::getpid()) + "_trace_quiet.log");
    const auto loud = std::filesystem::temp_directory_path() / ("tmi" + std::to_string(::getpid()) + "_trace_loud.log");
    {
        TcsTrace t(quiet.string());
        t.SetMode(tmTraceAll);
        t.Enter("A");
        t.Leave();
        EXPECT_TRUE(std::filesystem::exists(quiet));
    }
    EXPECT_FALSE(std::filesystem::exists(quiet));
    {
        TcsTrace t(loud.string());
        t.Enter("A");
        t.AddException(std::runtime_error("oops"), true);
        t.Leave();
    }
    EXPECT_TRUE(std::filesystem::exists(loud));
    std::filesystem::remove(loud);
}

TEST(Trace, SupportHeaderAndProcessTimes) {
    TcsTrace trace;
    trace.PrintDefaultHeader();
    trace.PrintGetProcessTimes();
    const auto& lines = trace.Storage();
    auto has = [&](const std::string& aPart) {
        return std::any_of(lines.begin(), lines.end(), [&](const std::string& l) { return l.find(aPart) != std::string::npos; });
    };
    EXPECT_TRUE(has("Program Folder: "));
    EXPECT_TRUE(has("Program Command Line: "));
    EXPECT_TRUE(has("DecimalSeparator: (.)"));
    EXPECT_TRUE(has("Starting Time "));
    // The block of the original, in its order, with this platform's stand-ins.
    std::vector<std::string> order;
    for (const char* key : {"Program Folder: ", "Program Version: ", "Program Command Line: ", "Linux Version: Linux ",
                            "IsWow64: False", "IsX64Module: ", "DecimalSeparator: (", "Memory Alloc: ", "MDAC Version: (",
                            "Path: ", "PathExt: ", "Compiler: "}) {
        const auto it = std::find_if(lines.begin(), lines.end(), [&](const std::string& l) { return l.find(key) != std::string::npos; });
        EXPECT_NE(it, lines.end()) << key;
        if (it != lines.end()) order.push_back(std::to_string(it - lines.begin()));
    }
    EXPECT_TRUE(std::is_sorted(order.begin(), order.end(), [](const std::string& a, const std::string& b) { return std::stoi(a) < std::stoi(b); }));
    // The start of the process to the millisecond; some process starts off a whole second
    // would do, so a run of them is looked at.
    const auto start = std::find_if(lines.begin(), lines.end(), [](const std::string& l) { return l.find("Starting Time ") != std::string::npos; });
    ASSERT_NE(start, lines.end());
    EXPECT_EQ(start->size() - start->find("Starting Time ") - 14, 12u) << *start;  // hh:nn:ss.zzz
}

TEST(Trace, ExceptionsCarryTheirClassName) {
    TcsTrace trace;
    trace.AddException(EcsOutput("no file"), false);
    trace.AddException(std::runtime_error("plain"), true);
    ASSERT_EQ(trace.Exceptions().size(), 2u);
    EXPECT_EQ(trace.Exceptions()[0], "Exception=EcsOutput, Message=no file, Handled=False");
    EXPECT_EQ(trace.Exceptions()[1], "Exception=runtime_error, Message=plain, Handled=True");
}

// Print with arguments takes the specifiers of the platform's Format.
TEST(Output, FormatSpecifiers) {
    EXPECT_EQ(FormatArgs("%s:%d:%s: %s", {"Enter", "3", "Name", "p"}), "Enter:3:Name: p");
    EXPECT_EQ(FormatArgs("%.3d ms", {"7"}), "007 ms");
    EXPECT_EQ(FormatArgs("[%5s|%-5s]", {"ab", "cd"}), "[   ab|cd   ]");
    EXPECT_EQ(FormatArgs("%x %X %u", {"255", "4096", "-3"}), "FF 1000 3");
    EXPECT_EQ(FormatArgs("%.2f %.1e %g", {"3.14159", "12345", "0.5"}), "3.14 1.2E+04 0.5");
    EXPECT_EQ(FormatArgs("%n", {"1234567.891"}), "1 234 567.89");
    EXPECT_EQ(FormatArgs("%1:s %0:s %s", {"a", "b"}), "b a b");
    EXPECT_EQ(FormatArgs("%*d|%.*s", {"4", "5", "2", "xyz"}), "   5|xy");
    EXPECT_EQ(FormatArgs("100%% %q %s", {}), "100% %q ");
    EXPECT_EQ(FormatArgs("%d", {"12a"}), "0");
    EXPECT_EQ(FormatArgs("tail %", {"x"}), "tail %");
    TcsOutput out;
    std::vector<std::string> storage;
    out.SetStorage(&storage);
    out.SetMode(mmMemory);
    out.InprintDate = out.InprintTime = out.InprintTick = false;
    out.Print("%s=%.1f", {"area", "2.25"});
    EXPECT_EQ(storage.back(), "area=2.2");
}
