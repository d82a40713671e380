#include <string>
#include <thread>

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
    struct Row {
        CKvVaneException exception;
        const char* expression;
        std::uint32_t result;
        const char* function;
    };
    const Row rows[] = {
        {raised(Raiser::byName), "KV_E_INVALID_POINTER", 0x89998045, "Raiser::byName()"},
        {raised([] { Raiser::byResult(0x80004005); }), "answer(code)", 0x80004005, "Raiser::byResult("},
        {raised([] { Raiser::bySdkStatus(8); }), "sdkCall(status)", 0x89998290, "Raiser::bySdkStatus(int)"},
        {raised([] { Raiser::bySdkStatus(26); }), "sdkCall(status)", 0x89998FFF, "Raiser::bySdkStatus(int)"},
    };
    for (const Row& row : rows) {
        EXPECT_STREQ(row.exception.m_expression, row.expression);
        EXPECT_EQ(static_cast<std::uint32_t>(row.exception.m_result), row.result);
        EXPECT_STREQ(row.exception.m_sourceFile, "tests/RaiseAndLogTest");
        EXPECT_NE(std::string(row.exception.m_function).find(row.function), std::string::npos)
            << row.exception.m_function;
        EXPECT_GT(row.exception.m_line, 0U);
    }
    EXPECT_EQ(g_evaluations, 3) << "each expression is evaluated once";
    for (const std::uint32_t success : {0U, 1U, 0x0999202EU}) {
        EXPECT_NO_THROW(Raiser::byResult(success));
    }
    EXPECT_NO_THROW(Raiser::bySdkStatus(0));
}

TEST_F(RaiseAndLog, CaughtExceptionReachesTheLoggerWithAReplacedCode) {
    try {
        Raiser::bySdkStatus(1);
    } catch (CKvVaneException& exception) {
        exception.m_result = KV_E_CONNECTION_FAILED;
        logCaughtException(exception);
    }
    const auto exceptions = RecordingLogger::takeExceptions();
    ASSERT_EQ(exceptions.size(), 1U);
    EXPECT_EQ(exceptions[0].m_result, KV_E_CONNECTION_FAILED);
    EXPECT_STREQ(exceptions[0].m_expression, "sdkCall(status)");
}

TEST_F(RaiseAndLog, LinesCarryCategoryLevelSiteAndText) {
    logText(3, 1, KV_SITE, "plain %d text");
    logPrintf(0, 4, KV_SITE, "number %d of %s", -5, "five");
    logPrintf(3, 1, KV_SITE, "%s", std::string(2000, 'x').c_str());
    const auto sites = RecordingLogger::takeSites();
    ASSERT_EQ(sites.size(), 3U);
    EXPECT_EQ(sites[0].find("tests/RaiseAndLogTest|"), 0U) << sites[0];
    EXPECT_NE(sites[0].find("LinesCarryCategoryLevelSiteAndText"), std::string::npos) << sites[0];
    EXPECT_EQ(RecordingLogger::takeLines(),
              (std::vector<LogLine>{
                  {3, 1, "plain %d text"}, {0, 4, "number -5 of five"}, {3, 1, std::string(1023, 'x')}}));
    EXPECT_EQ(RecordingLogger::foreignModuleIds(), 0);
}

TEST_F(RaiseAndLog, AHolderUndoesItsComInitialisationOnlyWhereItSucceeded) {
    struct Row {
        DWORD model; // of the thread before
        HRESULT result;
        std::uint64_t undone;
    };
    const Row rows[] = {{COINIT_APARTMENTTHREADED, S_FALSE, 1},
                        {COINIT_MULTITHREADED, RPC_E_CHANGED_MODE, 0}};
    for (const Row& row : rows) {
        std::thread([&row] {
            ASSERT_EQ(CoInitializeEx(nullptr, row.model), S_OK);
            RecordingLogger::registerClass();
            const int alive = RecordingLogger::alive();
            const std::uint64_t undone = KvTest::platformCalls(PlatformCall::CoUninitialize);
            {
                const ModuleLoggerHolder holder;
                EXPECT_EQ(holder.m_coInitializeResult, row.result);
                EXPECT_EQ(RecordingLogger::alive(), alive + 1) << "it has its logger all the same";
            }
            EXPECT_EQ(RecordingLogger::alive(), alive);
            EXPECT_EQ(KvTest::platformCalls(PlatformCall::CoUninitialize), undone + row.undone);
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
    EXPECT_TRUE(RecordingLogger::takeLines(true).empty());
    EXPECT_TRUE(RecordingLogger::takeExceptions().empty());
}

} // namespace
