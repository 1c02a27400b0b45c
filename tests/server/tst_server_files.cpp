#include "ServiceHarness.h"
#include "base/Digest.h"
#include "services/FileNames.h"
#include "services/LogArchive.h"
#include "store/BlobStore.h"
#include "store/Db.h"

#include <cerrno>
#include <chrono>
#include <dlfcn.h>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <random>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>
#include <zip.h>

using namespace kvx::test;
using namespace kvx::server;

namespace {

const std::string guid = guidOf(1);
using Kind = FileName::Kind;

/// What is not to reach the disk, and the error for it.
struct FailingSync {
    std::string path;
    int error = 0;
};
std::mutex failingSyncMutex;
FailingSync failingSync;

void failSyncOf(const std::string &path, int error)
{
    const std::lock_guard<std::mutex> lock(failingSyncMutex);
    failingSync = { path, error };
}

struct Files : testing::Test {
    ServiceHarness harness { [](Config &config) {
        config.userQuota = 1 << 20;
        config.projectQuota = 2 << 20;
    } };
    Session anna = harness.join("anna@example.com");
    Session ben = harness.join("ben@example.com");
    Session cora = harness.join("cora@example.com");

    void SetUp() override
    {
        ASSERT_EQ(anna.ask(newProject(anna, guid, "School")).status(), 1);
        ASSERT_EQ(permit(anna, guid, { { "ben@example.com", "0,1,1,1" } }).status(), 1);
    }
    Answer download(const Session &session, const std::string &name)
    {
        return session.askAs(Message("download").set("FileName", name));
    }
    int has(const Session &session, const std::string &name, const std::string &md5 = {})
    {
        Message message("hasupload");
        message.set("FileName", name);
        if (!md5.empty())
            message.set("md5", md5);
        return session.askAs(message).status();
    }
};

} // namespace

/// Stands in for the system's own: a disk that fails cannot be had otherwise.
extern "C" int fsync(int descriptor)
{
    static const auto real = reinterpret_cast<int (*)(int)>(dlsym(RTLD_NEXT, "fsync"));
    std::error_code ignored;
    const auto path
        = std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(descriptor), ignored);
    {
        const std::lock_guard<std::mutex> lock(failingSyncMutex);
        if (failingSync.error != 0 && path == failingSync.path) {
            errno = failingSync.error;
            return -1;
        }
    }
    return real(descriptor);
}

TEST(FileNames, TwoHundredNamesAreTakenForWhatTheyAre)
{
    const std::string g = guidOf(0xABC);
    const auto kindOf = [](const std::string &text) -> int {
        const auto name = parseFileName(text);
        return name ? static_cast<int>(name->kind) : -1;
    };
    const auto expect = [&](int kind, const std::vector<std::string> &names) {
        for (const std::string &name : names)
            EXPECT_EQ(kindOf(name), kind) << name;
        return names.size();
    };
    std::size_t count = 0;
    std::vector<std::string> logs, badLogs, attachments, own, invalid;
    for (const char *version : { "0", "1", "9", "10", "100", "999999999", "123456789", "42" })
        logs.push_back(g + "_log" + version);
    for (const char *version :
        { "", "00", "01", "007", "1000000000", "0000000001", "99999999999999999999" })
        badLogs.push_back(g + "_log" + version);
    for (const char *name : { "plan.pdf", "log-1", "log 1", "log1.zip", "Log1", "LOG0", "log1a",
             "a", "1", "x_y.z", "with space.txt", "-dash", "_under", "a.b.c.d", "catalog5",
             "\xC3\x84 \xC3\xB6.txt", "con1.txt", "log_1" })
        attachments.push_back(g + '_' + name);
    for (const char *name : { "notes.txt", "a", "0", "A-B_C.D", "report 2026.pdf", "KVX",
             "project.KVX", "log1", "a.con", "console", "com10", "lpt", "\xE4\xBB\xB6.txt",
             "e\xCC\x81t\xC3\xA9.doc", "aux1" })
        own.push_back(name);
    own.push_back(std::string(120, 'n'));
    for (const char *name : { "", " ", ".", "..", "...", ".hidden", "trail.", "trail ", " lead",
             "a/b", "/a", "a\\b", "..\\a", "../a", "a/../b", "a..b", "C:a", "a:b", "a*", "a?",
             "\"a\"", "<a>", "a|b", "a\tb", "a\nb", "a\rb",
             "a\x7F"
             "b",
             "\x01", "con", "CON", "Con.txt", "nul", "NUL.tar.gz", "aux.h", "prn", "com1", "COM9.x",
             "lpt0", "com0", "conin$", "con .txt", "nul  .a", "a$", "a%b", "%2e%2e", "a&b", "a;b",
             "a=b", "a+b", "a@b", "a#b", "~a", "a'b", "`a`", "{a}", "(a)", "[a]", "a,b", "a!b",
             "\xFF\xFE", "\xC3",
             "a\xC2\xA0"
             "b",
             "a\xE2\x80\xAE"
             "b",
             "\xE2\x80\xA8", "\xF0\x9F\x98\x80", "a\xEF\xBB\xBF", "\xE2\x88\x95", "\xEF\xBC\x8F",
             "a\xC2\x85" })
        invalid.push_back(name);
    invalid.push_back(std::string(121, 'n'));
    invalid.push_back(std::string("a\0b", 3));
    for (const char *name :
        { "", "_", ".kvx", ".KVX2", ".KVX ", "KVX", " .KVX", "_.hidden", "_../x", "_a/b", "_con",
            "_a..b", "__", "_nul.txt", "_a\\b", "/x", "_ x", "_x ", "-x", "log1", ".log1" })
        invalid.push_back(g + name);
    attachments.push_back(g + "___");
    invalid.erase(std::find(invalid.begin(), invalid.end(), g + "__"));
    attachments.push_back(g + "__");
    for (const std::string &half : { g.substr(1), g.substr(0, 37), "{" + g, g.substr(0, 20) })
        invalid.push_back(half + "_log1");
    std::string wrongDigit = g;
    wrongDigit[3] = 'g';
    invalid.push_back(wrongDigit + "_log1");
    invalid.push_back(wrongDigit + ".KVX");
    // Every single byte that is no letter, digit or one of the four.
    for (int c = 1; c < 128; ++c) {
        if (!std::isalnum(c) && std::string(" ._-").find(static_cast<char>(c)) == std::string::npos)
            invalid.push_back(std::string("x") + static_cast<char>(c) + "y");
    }
    count += expect(static_cast<int>(Kind::ChangeLog), logs);
    count += expect(static_cast<int>(Kind::BadChangeLog), badLogs);
    count += expect(static_cast<int>(Kind::ProjectFile), { g + ".KVX" });
    count += expect(static_cast<int>(Kind::Attachment), attachments);
    count += expect(static_cast<int>(Kind::Own), own);
    count += expect(-1, invalid);
    EXPECT_GE(count, 200u);
    EXPECT_EQ(parseFileName(g + "_log123456789")->version, 123456789);
    EXPECT_EQ(parseFileName("e\xCC\x81")->name, "\xC3\xA9");
}

TEST(LogArchives, AreCheckedInsideOut)
{
    TemporaryFolder folder;
    const std::string path = folder.path + "/log";
    const auto fault = [&](const std::string &bytes) {
        std::ofstream(path, std::ios::binary) << bytes;
        return faultOfLogArchive(path, "log1").value_or("none");
    };
    const std::string good = logArchive("log1", "some changes");
    EXPECT_EQ(fault(good), "none");
    EXPECT_EQ(fault(logArchive("log1", "")), "none");
    EXPECT_EQ(fault(""), "it is not a zip archive");
    EXPECT_EQ(fault("nonsense"), "it is not a zip archive");
    EXPECT_EQ(fault(logArchive("log2", "x")), "its entry must be named log1");
    EXPECT_EQ(fault(logArchive("../log1", "x")), "its entry must be named log1");
    EXPECT_EQ(fault(logArchive("log1/", "")), "its entry must be named log1");
    EXPECT_EQ(fault(logArchive("log1", std::string(4 << 20, 'a'))),
        "its entry unpacks to more than 200 times its size");
    std::string damaged = good;
    damaged[good.find("some") + 1] = 'X';
    EXPECT_EQ(fault(damaged), "its entry is damaged");
    for (std::size_t length = 0; length < good.size(); ++length)
        EXPECT_NE(fault(good.substr(0, length)), "none") << length;
    std::mt19937 random(1);
    for (int i = 0; i < 500; ++i) {
        std::string bytes = good;
        bytes[random() % bytes.size()] = static_cast<char>(random());
        fault(bytes); // whatever it says, it says it
    }
}

TEST(LogArchives, WithTwoEntriesAPasswordOrALinkAreRefused)
{
    TemporaryFolder folder;
    const std::string path = folder.path + "/log";
    const auto make = [&](const std::function<void(zip_t *)> &change) {
        int error = 0;
        zip_t *archive = zip_open(path.c_str(), ZIP_CREATE | ZIP_TRUNCATE, &error);
        zip_file_add(archive, "log1", zip_source_buffer(archive, "abc", 3, 0), 0);
        change(archive);
        EXPECT_EQ(zip_close(archive), 0);
        return faultOfLogArchive(path, "log1").value_or("none");
    };
    EXPECT_EQ(make([](zip_t *) {}), "none");
    EXPECT_EQ(make([](zip_t *archive) {
        zip_file_add(archive, "more", zip_source_buffer(archive, "x", 1, 0), 0);
    }),
        "it must hold exactly one entry");
    EXPECT_EQ(
        make([](zip_t *archive) { zip_file_set_encryption(archive, 0, ZIP_EM_AES_256, "secret"); }),
        "it has a password");
    EXPECT_EQ(make([](zip_t *archive) {
        zip_file_set_external_attributes(archive, 0, 0, ZIP_OPSYS_UNIX, 0120777u << 16);
    }),
        "its entry is no ordinary file");
}

TEST(LogArchives, WithBytesThatClientsRefuseAreRefused)
{
    TemporaryFolder folder;
    const std::string path = folder.path + "/log";
    const auto fault = [&](const std::string &bytes) {
        std::ofstream(path, std::ios::binary) << bytes;
        return faultOfLogArchive(path, "log1").value_or("none");
    };
    const std::string good = logArchive("log1", "some changes");
    const std::size_t end = good.size() - 22;
    const std::size_t directory = good.find("PK\x01\x02");
    const auto with = [&good](std::size_t at, const std::string &bytes) {
        return std::string(good).replace(at, bytes.size(), bytes);
    };
    EXPECT_NE(fault(good.substr(0, end) + "gap" + good.substr(end)), "none");
    EXPECT_NE(fault(good + "x"), "none");
    EXPECT_NE(fault("x" + good), "none");
    EXPECT_NE(fault(good + good), "none");
    EXPECT_NE(fault(with(good.find("log1"), "../x")), "none") << "another local name";
    EXPECT_NE(fault(with(6, "\x01")), "none") << "other local flags";
    EXPECT_NE(fault(with(end + 4, "\x01")), "none") << "another volume";
    EXPECT_NE(fault(with(directory + 38, "\x10")), "none") << "a folder of another system";
    EXPECT_NE(fault(with(directory + 5,
                  std::string("\0", 1) + with(0, "").substr(directory + 6, 34)
                      + std::string("\xff\xa1", 2))),
        "none")
        << "a link said to be another system's";
    std::string comment = with(end + 20, "\x16");
    EXPECT_NE(fault(comment + "PK\x05\x06" + std::string(18, '\0')), "none") << "two ends";
}

TEST_F(Files, TheFirstProjectFileBecomesTheBaseAtOnce)
{
    EXPECT_EQ(download(anna, guid + ".KVX").status(), 606);
    EXPECT_EQ(ben.upload(guid + ".KVX", "base").status(), 300) << "a reader";
    const Session admin = harness.join("root@example.com", "Administrator");
    EXPECT_EQ(admin.upload(guid + ".KVX", "base").status(), 600) << "not the creator";
    EXPECT_EQ(anna.upload(guid + ".KVX", "base").json(), R"({"statuscode":1})");
    const Answer file = download(ben, guid + ".KVX");
    EXPECT_EQ(file.fileBytes(), "base");
    EXPECT_EQ(file.integer("LogVersion"), -1);
    EXPECT_EQ(anna.upload(guid + ".KVX", "base").status(), 1) << "the same bytes again";
    EXPECT_EQ(anna.upload(guid + ".KVX", "other").status(), 607);
    EXPECT_EQ(download(ben, guid + ".KVX").fileBytes(), "base");
    EXPECT_EQ(save(anna, guid, -1).status(), 1);
    EXPECT_EQ(anna.upload(guid + ".KVX", "base").status(), 600)
        << "after the first save the lock is needed";
}

TEST_F(Files, ReadingAForeignFileLooksLikeAMissingOne)
{
    ASSERT_EQ(save(anna, guid, -1).status(), 1);
    ASSERT_EQ(anna.upload(guid + "_plan.pdf", "plan").status(), 1);
    for (const std::string &name : { guid + "_log0", guid + ".KVX", guid + "_plan.pdf" }) {
        EXPECT_EQ(has(ben, name), 1) << name;
        EXPECT_EQ(has(cora, name), 606) << name;
        EXPECT_EQ(download(cora, name).text("message"), "The server has no such file.") << name;
        EXPECT_EQ(cora.upload(name, "x").status(), 310) << name;
    }
    EXPECT_EQ(download(ben, guid + "_log1").status(), 606);
    EXPECT_EQ(download(ben, guid + "_log01").status(), 606);
    EXPECT_EQ(download(ben, guidOf(99) + "_log0").status(), 606);
    EXPECT_EQ(download(ben, "../etc").status(), 100);
    EXPECT_EQ(download(ben, guid + ".kvx").status(), 100);
}

TEST_F(Files, AttachmentsBelongToTheProject)
{
    EXPECT_EQ(ben.upload(guid + "_plan.pdf", "plan").status(), 300);
    EXPECT_EQ(anna.upload(guid + "_plan.pdf", "plan").status(), 1);
    EXPECT_EQ(download(ben, guid + "_PLAN.pdf").fileBytes(), "plan");
    EXPECT_EQ(anna.upload(guid + "_Plan.pdf", "new plan").status(), 1);
    EXPECT_EQ(download(ben, guid + "_plan.pdf").fileBytes(), "new plan");
    EXPECT_EQ(has(ben, guid + "_plan.pdf", md5("new plan")), 1);
    EXPECT_EQ(has(ben, guid + "_plan.pdf", md5("plan")), 606);
    EXPECT_EQ(anna.upload(guid + "_big", std::string(2 << 20, 'x')).status(), 106);
    EXPECT_EQ(anna.upload(guid + "_big", std::string((2 << 20) - 8, 'x')).status(), 1);
    EXPECT_EQ(anna.upload(guid + "_more", "x").status(), 106);
    EXPECT_EQ(anna.upload(guid + "_big", "x").status(), 1) << "the replaced file does not count";
    EXPECT_EQ(harness.takeSent().size(), 2u) << "uploads are not announced";
}

TEST_F(Files, EveryUserHasAnAreaOfHisOwn)
{
    EXPECT_EQ(anna.upload("notes.txt", "anna's").status(), 1);
    EXPECT_EQ(ben.upload("notes.txt", "ben's").status(), 1);
    EXPECT_EQ(download(anna, "notes.txt").fileBytes(), "anna's");
    EXPECT_EQ(download(ben, "NOTES.txt").fileBytes(), "ben's");
    EXPECT_EQ(download(cora, "notes.txt").status(), 606);
    const Answer full = anna.upload("big", std::string(1 << 20, 'x'));
    EXPECT_EQ(full.status(), 106);
    EXPECT_EQ(full.text("message"), "Your share of the server's space is used up (1 MiB).");
    EXPECT_EQ(download(anna, "big").status(), 606);
}

TEST_F(Files, DigestsAndIdentitiesInTheRequestMustFit)
{
    EXPECT_EQ(anna.upload("notes.txt", "bytes", md5("bytes")).status(), 1);
    std::string upper = md5("bytes");
    for (char &c : upper)
        c = static_cast<char>(std::toupper(c));
    EXPECT_EQ(anna.upload("notes.txt", "bytes", upper).status(), 1);
    EXPECT_EQ(anna.upload("notes.txt", "bytes", md5("other")).status(), 107);
    EXPECT_EQ(anna.upload("notes.txt", "bytes", "abc").status(), 100);
    const auto upload = [&](const char *key, const std::string &value) {
        return anna.upload(Message("upload").set("FileName", guid + "_a").set(key, value), "x")
            .status();
    };
    EXPECT_EQ(upload("email", "ben@example.com"), 301);
    EXPECT_EQ(upload("Email", "ben@example.com"), 301);
    EXPECT_EQ(upload("email", "ANNA@example.com"), 1);
    EXPECT_EQ(upload("ProjectGUID", guid), 1);
    EXPECT_EQ(upload("ProjectGUID", guidOf(2)), 100);
    EXPECT_EQ(upload("Whatever", "ignored"), 1);
    EXPECT_EQ(anna.upload(Message("upload"), "x").status(), 100);
    EXPECT_EQ(anna.askAs(Message("upload").set("FileName", "a.txt")).status(), 100)
        << "without a file";
}

TEST_F(Files, BlobsAreNamedByTheirDigestAndKeptOnce)
{
    ASSERT_EQ(anna.upload("a.txt", "same").status(), 1);
    ASSERT_EQ(ben.upload("b.txt", "same").status(), 1);
    const std::string digest = sha256("same");
    const std::string path = harness.folder() + "/blobs/" + digest.substr(0, 2) + '/' + digest;
    struct stat status { };
    ASSERT_EQ(stat(path.c_str(), &status), 0);
    EXPECT_EQ(harness.db().value<int>("SELECT count(*) FROM blob").value(), 1);
    const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (!std::filesystem::is_empty(harness.folder() + "/tmp")
        && std::chrono::steady_clock::now() < limit)
        std::this_thread::yield();
    EXPECT_TRUE(std::filesystem::is_empty(harness.folder() + "/tmp"))
        << "temporaries go with their request";
}

TEST_F(Files, ABlobThatWasSweptWhileItsUploadRanIsPutBack)
{
    const BlobStore blobs(harness.folder());
    const std::string from = harness.folder() + "/tmp/received";
    std::ofstream(from) << "bytes";
    const std::string digest = sha256("bytes");
    blobs.place(from, digest);
    std::filesystem::remove(blobs.path(digest));
    Transaction transaction(harness.db(), Transaction::Kind::Write);
    blobs.record(harness.db(), from, digest, 5, 1);
    transaction.commit();
    EXPECT_TRUE(std::filesystem::exists(blobs.path(digest)));
    EXPECT_EQ(BlobStore::size(harness.db(), digest), 5);
}

TEST_F(Files, ABlobThatIsThereIsKeptAndYoungAgain)
{
    const BlobStore blobs(harness.folder());
    const std::string from = harness.folder() + "/tmp/received";
    const std::string digest = sha256("bytes");
    std::ofstream(from) << "bytes";
    blobs.place(from, digest);
    struct stat before { };
    ASSERT_EQ(stat(blobs.path(digest).c_str(), &before), 0);
    const timespec old[2] = { { 1, 0 }, { 1, 0 } };
    ASSERT_EQ(utimensat(AT_FDCWD, blobs.path(digest).c_str(), old, 0), 0);
    std::filesystem::remove(from);
    std::ofstream(from) << "bytes";
    blobs.place(from, digest);
    struct stat after { };
    ASSERT_EQ(stat(blobs.path(digest).c_str(), &after), 0);
    EXPECT_EQ(after.st_ino, before.st_ino);
    EXPECT_GE(after.st_mtime, before.st_mtime);
}

TEST_F(Files, WhatAPowerCutLeftUnderABlobsNameIsReplaced)
{
    const BlobStore blobs(harness.folder());
    const std::string from = harness.folder() + "/tmp/received";
    const std::string digest = sha256("bytes");
    std::ofstream(from) << "bytes";
    blobs.place(from, digest);
    for (const std::string torn : { "", "byt", "byteX", "bytes and more" }) {
        std::filesystem::remove(blobs.path(digest)); // not the file at `from` itself
        std::ofstream(blobs.path(digest)) << torn;
        blobs.place(from, digest);
        std::ifstream file(blobs.path(digest));
        std::string found;
        std::getline(file, found);
        EXPECT_EQ(found, "bytes") << torn;
        const auto inner = std::filesystem::path(blobs.path(digest)).parent_path();
        EXPECT_EQ(std::distance(std::filesystem::directory_iterator(inner), {}), 1) << torn;
    }
}

TEST_F(Files, NoRowNamesABlobBeforeItIsSyncedWithEveryFolderAbove)
{
    const std::string digest = sha256("bytes");
    const std::string target = BlobStore(harness.folder()).path(digest);
    const std::filesystem::path all = harness.folder() + "/blobs";
    std::filesystem::path path = target;
    for (int level = 0; level < 3; ++level, path = path.parent_path()) {
        for (const int error : { EIO, ENOSPC }) {
            for (const auto &folder : std::filesystem::directory_iterator(all))
                std::filesystem::remove_all(folder.path()); // synced when they are made
            failSyncOf(path.string(), error);
            EXPECT_EQ(anna.upload("a.txt", "bytes").status(), error == EIO ? 0 : 105) << path;
            EXPECT_EQ(harness.db().value<int>("SELECT count(*) FROM blob").value(), 0) << path;
            EXPECT_FALSE(std::filesystem::exists(target))
                << "bytes that failed once must not be taken for good the next time";
        }
    }
    failSyncOf({}, 0);
    EXPECT_EQ(anna.upload("a.txt", "bytes").status(), 1);
    EXPECT_EQ(download(anna, "a.txt").fileBytes(), "bytes");
}

TEST_F(Files, DownloadsOfChangeLogsDoNotCountAgainstTheRate)
{
    ASSERT_EQ(save(anna, guid, -1).status(), 1);
    ASSERT_EQ(anna.upload(guid + "_logo.png", "x").status(), 1);
    const Session fresh = harness.login("anna@example.com", "laptop");
    harness.stopClock();
    for (int i = 0; i < 5500; ++i)
        ASSERT_EQ(download(fresh, guid + "_log0").status(), 1) << i;
    EXPECT_EQ(fresh.ask(Message("keepactive")).status(), 1) << "as if there had been none";
    int taken = 0;
    while (taken < 6000 && download(fresh, guid + "_logo.png").status() == 1)
        ++taken;
    EXPECT_EQ(taken, 4999) << "an attachment whose name begins alike is no change log";
}

TEST_F(Files, WithoutSpaceUploadsAreRefusedBeforeTheirBytes)
{
    harness.config().diskReserve = std::int64_t { 1 } << 60;
    EXPECT_EQ(anna.upload("notes.txt", "x").status(), 105);
    EXPECT_EQ(anna.upload(guid + ".KVX", "x").status(), 105);
    EXPECT_EQ(anna.upload(guid + ".KVX", "x").text("message"),
        "The server has no space left. Please tell your administrator.");
}

TEST_F(Files, InMaintenanceOneReadsAndDoesNotWrite)
{
    ASSERT_EQ(anna.upload("notes.txt", "x").status(), 1);
    harness.db().execute("INSERT INTO meta (name, value) VALUES ('read_only', '1')");
    EXPECT_EQ(anna.upload("notes.txt", "y").status(), 104);
    EXPECT_EQ(download(anna, "notes.txt").fileBytes(), "x");
    EXPECT_EQ(has(anna, "notes.txt"), 1);
}
