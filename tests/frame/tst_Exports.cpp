#include <KVXCollaboration/KVXCWMessage.h>
#include <cstring>
#include <dlfcn.h>
#include <elf.h>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <memory>
#include <set>
#include <string>
#include <vector>

namespace {

const std::set<std::string> entryPoints { "initLoginManager", "initUserManager",
    "initReportTemplateMgr", "initGlobalLockMgr", "initProjectListManager",
    "initProjectPermissionManager", "initProjectDataSynchronizer", "initIdManager", "initOcr",
    "initFileService", "initMessage", "initCommon", "initServerStatusChecker" };

/// Names of the dynamic symbols that the library defines.
std::set<std::string> exportedNames(const char *file)
{
    std::ifstream stream(file, std::ios::binary);
    const std::vector<char> bytes((std::istreambuf_iterator<char>(stream)), {});
    std::set<std::string> names;
    Elf64_Ehdr header;
    if (bytes.size() < sizeof header)
        return names;
    std::memcpy(&header, bytes.data(), sizeof header);
    const auto section = [&](std::size_t index) {
        Elf64_Shdr found;
        std::memcpy(&found, &bytes.at(header.e_shoff + index * sizeof found), sizeof found);
        return found;
    };
    for (std::size_t i = 0; i < header.e_shnum; ++i) {
        const Elf64_Shdr table = section(i);
        if (table.sh_type != SHT_DYNSYM)
            continue;
        const Elf64_Shdr strings = section(table.sh_link);
        for (std::size_t at = 0; at < table.sh_size; at += sizeof(Elf64_Sym)) {
            Elf64_Sym symbol;
            std::memcpy(&symbol, &bytes.at(table.sh_offset + at), sizeof symbol);
            const bool local = ELF64_ST_BIND(symbol.st_info) == STB_LOCAL;
            if (symbol.st_shndx != SHN_UNDEF && !local)
                names.insert(&bytes.at(strings.sh_offset + symbol.st_name));
        }
    }
    return names;
}

} // namespace

TEST(Exports, theLibraryExportsTheThirteenEntryPointsAndNothingElse)
{
    EXPECT_EQ(entryPoints.size(), 13U);
    EXPECT_EQ(exportedNames(KVX_PLUGIN_FILE), entryPoints);
}

TEST(Exports, eachEntryPointIsFoundByItsPlainName)
{
    void *library = dlopen(KVX_PLUGIN_FILE, RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(library, nullptr) << dlerror();
    for (const std::string &name : entryPoints)
        EXPECT_NE(dlsym(library, name.c_str()), nullptr) << name;

    const auto initMessage
        = reinterpret_cast<void (*)(KVXCWMessage **)>(dlsym(library, "initMessage"));
    KVXCWMessage *messager = nullptr;
    initMessage(&messager);
    ASSERT_NE(messager, nullptr);
    EXPECT_TRUE(messager->stop());
    delete messager;
    EXPECT_EQ(dlclose(library), 0);
}

TEST(Exports, theCodeStaysLoadedForBrokerThreadsThatEndLate)
{
    void *library = dlopen(KVX_PLUGIN_FILE, RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(library, nullptr) << dlerror();
    dlclose(library);

    void *again = dlopen(KVX_PLUGIN_FILE, RTLD_NOW | RTLD_NOLOAD);
    EXPECT_NE(again, nullptr);
    if (again)
        dlclose(again);
}
