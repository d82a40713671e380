#include <string>
#include <thread>
#include <tuple>

#include <gtest/gtest.h>

#include "Logging.h"
#include "PlatformFaults.h"
#include "Raise.h"
#include "RecordingLogger.h"
#include "StatusTables.h"

using KvTest::PlatformCall;
using KvTest::PlatformFault;

namespace {

int g_evaluations = 0;

HRESULT answer(std::uint32_t code) {
    ++g_evaluations;
    return kvResult(code);
}

std::uint32_t sdkCall(int status) {
    ++g_evaluations;
    return static_cast<std::uint32_t>(status);
}

struct Raiser {
    static void byName() { KV_THROW(KV_E_INVALID_POINTER); }
    static void byResult(std::uint32_t code) { KV_THROW_IF_FAILED(answer(code)); }
    static void bySdkStatus(int status) { KV_THROW_IF_SDK_CALL_FAILED(mapNetworkStatus, sdkCall(status)); }
};

template <class Operation>
CKvVaneException raised(Operation operation) {
    try {
        operation();
    } catch (const CKvVaneException& exception) {
        return exception;
    }
    ADD_FAILURE() << "nothing was raised";
    return {"", "", 0, "", 0};
}

struct RaiseAndLog : testing::Test {
    RaiseAndLog() {
        RecordingLogger::clear();
        g_evaluations = 0;
    }
};

TEST_F(RaiseAndLog, CarriesCodeExpressionAndSite) {
    const std::tuple<CKvVaneException, const char*, std::uint32_t, const char*> rows[] = {
        {raised(Raiser::byName), "KV_E_INVALID_POINTER", 0x89998045, "Raiser::byName()"},
        {raised([] { Raiser::byResult(0x80004005); }), "answer(code)", 0x80004005, "Raiser::byResult("},
        {raised([] { Raiser::bySdkStatus(8); }), "sdkCall(status)", 0x89998290, "Raiser::bySdkStatus(int)"}};
    for (const auto& [exception, expression, result, function] : rows) {
        EXPECT_STREQ(exception.m_expression, expression);
        EXPECT_EQ(static_cast<std::uint32_t>(exception.m_result), result);
        EXPECT_STREQ(exception.m_sourceFile, "tests/RaiseAndLogTest");
        EXPECT_NE(std::string(exception.m_function).find(function), std::string::npos)
            << exception.m_function;
    }
    EXPECT_EQ(g_evaluations, 2) << "each expression is evaluated once";
    EXPECT_NO_THROW(Raiser::byResult(1));
    EXPECT_NO_THROW(Raiser::bySdkStatus(0));
}

TEST_F(RaiseAndLog, LinesAndExceptionsReachTheLogger) {
    logText(3, 1, KV_SITE, "plain %d text");
    logPrintf(0, 4, KV_SITE, "number %d of %s", -5, "five");
    logPrintf(3, 1, KV_SITE, "%s", std::string(2000, 'x').c_str());
    EXPECT_EQ(RecordingLogger::takeSites().at(0).find("tests/RaiseAndLogTest|"), 0U);
    EXPECT_EQ(RecordingLogger::takeLines(),
              (std::vector<LogLine>{
                  {3, 1, "plain %d text"}, {0, 4, "number -5 of five"}, {3, 1, std::string(1023, 'x')}}));
    logCaughtException(raised([] { Raiser::bySdkStatus(1); }));
    EXPECT_STREQ(RecordingLogger::takeExceptions().at(0).m_expression, "sdkCall(status)");
}

TEST_F(RaiseAndLog, AHolderUndoesItsComInitialisationOnlyWhereItSucceeded) {
    for (const bool isAlike : {true, false}) { // the thread's apartment before
        std::thread([isAlike] {
            const DWORD model = isAlike ? COINIT_APARTMENTTHREADED : COINIT_MULTITHREADED;
            ASSERT_EQ(CoInitializeEx(nullptr, model), S_OK);
            RecordingLogger::registerClass();
            const int alive = RecordingLogger::alive();
            const std::uint64_t undone = KvTest::platformCalls(PlatformCall::CoUninitialize);
            {
                const ModuleLoggerHolder holder;
                EXPECT_EQ(holder.m_coInitializeResult, isAlike ? S_FALSE : RPC_E_CHANGED_MODE);
                EXPECT_EQ(RecordingLogger::alive(), alive + 1) << "it has its logger all the same";
            }
            EXPECT_EQ(RecordingLogger::alive(), alive);
            EXPECT_EQ(KvTest::platformCalls(PlatformCall::CoUninitialize), undone + (isAlike ? 1U : 0U));
            CoUninitialize();
        }).join();
    }
}

TEST_F(RaiseAndLog, WithoutALoggerEveryOperationReturnsAtOnce) {
    const PlatformFault fault(PlatformCall::CoCreateInstance, {.result = REGDB_E_CLASSNOTREG});
    const ModuleLoggerHolder holder;
    EXPECT_TRUE(!holder.m_logger);
    logging::writeText(holder, 3, 1, "file", "function", 1, "text");
    logging::writeFormatted(holder, 3, 1, "file", "function", 1, "%d", 1);
    logging::writeException(holder, CKvVaneException("", "", 0, "", 0));
    EXPECT_TRUE(RecordingLogger::takeLines(true).empty() && RecordingLogger::takeExceptions().empty());
}

} // namespace
