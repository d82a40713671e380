#include <array>
#include <cstdio>
#include <memory>
#include <set>
#include <string>

#include <gtest/gtest.h>

// Whatever else the module exported would be found before, or instead of, the same name elsewhere in the
// host's process.
TEST(ExportedSymbols, AreTheEntryPointsAndOneClass) {
    const std::set<std::string> allowed{
        "DllCanUnloadNow",
        "DllGetClassObject",
        "DllRegisterServer",
        "DllUnregisterServer",
        "CKvSubjectContext::CKvSubjectContext()",
        "CKvSubjectContext::CKvSubjectContext(CKvSubjectContext const&)",
        "CKvSubjectContext::~CKvSubjectContext()",
        "CKvSubjectContext::operator=(CKvSubjectContext const&)",
        "vtable for CKvSubjectContext",
        "typeinfo for CKvSubjectContext",
        "typeinfo name for CKvSubjectContext",
    };
    const std::unique_ptr<FILE, int (*)(FILE*)> listing(
        popen(KV_NM " --dynamic --defined-only --demangle " KV_MODULE, "r"), pclose);
    ASSERT_NE(listing, nullptr);
    std::set<std::string> exported;
    std::array<char, 1024> line{};
    while (std::fgets(line.data(), static_cast<int>(line.size()), listing.get()) != nullptr) {
        const std::string text(line.data());
        const std::size_t name = text.find(' ', text.find(' ') + 1) + 1; // "address type name"
        exported.insert(text.substr(name, text.find('\n') - name));
    }
    EXPECT_EQ(exported, allowed);
}
