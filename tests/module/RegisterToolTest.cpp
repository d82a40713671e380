#include <sys/wait.h>

#include <array>
#include <cstdio>
#include <filesystem>

#include "ModuleFixture.h"

namespace {

struct ToolResult {
    int exitCode;
    std::string output; // both streams
};

ToolResult runTool(const std::string& arguments) {
    FILE* const pipe = popen((KV_REGISTER_TOOL " " + arguments + " 2>&1").c_str(), "r");
    ToolResult result{-1, {}};
    std::array<char, 4096> text{};
    while (std::fgets(text.data(), static_cast<int>(text.size()), pipe) != nullptr) {
        result.output += text.data();
    }
    const int status = pclose(pipe);
    result.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return result;
}

class RegisterTool : public ModuleFixture {};

TEST_F(RegisterTool, SaysWhatItDid) {
    std::string classes;
    for (const char* line :
         {"  {5B0B6B0C-7D0E-4B44-9D27-0B1F64C0A041}  Korvel RTSP Receiver Factory\n",
          "  {5B0B6B0C-7D0E-4B44-9D27-0B1F64C0A042}  Korvel RTMP Receiver Factory\n",
          "  {5B0B6B0C-7D0E-4B44-9D27-0B1F64C0A043}  Korvel RTP Receiver Factory\n",
          "  {5B0B6B0C-7D0E-4B44-9D27-0B1F64C0A044}  Korvel TS over UDP Receiver Factory\n"}) {
        classes += line;
    }
    const std::string module = KV_MODULE;
    struct Row {
        std::string arguments;
        int exitCode;
        std::string output;
    };
    for (const Row& row : {Row{"--unregister " + module, 0, module + " was not registered\n"},
                           Row{module, 0, "registered " + module + "\n" + classes},
                           Row{module, 0, "registered " + module + "\n" + classes},
                           Row{"-u " + module, 0, "unregistered " + module + "\n" + classes},
                           Row{"--unregister " + module, 0, module + " was not registered\n"}}) {
        const ToolResult result = runTool(row.arguments);
        EXPECT_EQ(result.exitCode, row.exitCode);
        EXPECT_EQ(result.output, row.output);
    }
}

TEST_F(RegisterTool, FailsWithAMessageThatNamesTheModule) {
    struct Row {
        std::string arguments;
        int exitCode;
        std::string part;
    };
    for (const Row& row : {Row{"", 2, "usage:"}, Row{"--unregister", 2, "usage:"}, Row{"--help", 0, "usage:"},
                           Row{"--register x", 2, "unknown option --register"},
                           Row{"missing.so", 1, "cannot load ./missing.so (error 126)"},
                           Row{"/dev/null", 1, "cannot load /dev/null (error 126)"},
                           Row{"missing.so " KV_MODULE, 1, "registered " KV_MODULE}}) {
        const ToolResult result = runTool(row.arguments);
        EXPECT_EQ(result.exitCode, row.exitCode) << row.arguments;
        EXPECT_NE(result.output.find(row.part), std::string::npos) << result.output;
    }
}

TEST_F(RegisterTool, RefusesALibraryThatIsNoServer) {
    const ToolResult result = runTool(KV_PLATFORM_LIBRARY);
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_NE(result.output.find("has no DllRegisterServer: it is not an in-process server"),
              std::string::npos)
        << result.output;
}

} // namespace
