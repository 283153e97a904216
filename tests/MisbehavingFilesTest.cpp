#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/fsuid.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <memory>
#include <string>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

#include "EngineMessages.h"
#include "FileSizeLimit.h"
#include "OxLogMatchers.h"
#include "OxLuaScript.h"
#include "OxPlainFile.h"
#include "OxStatus.h"
#include "OxXml.h"
#include "OxXmlDocument.h"
#include "OxXmlNode.h"
#include "OxXmlStyleSheet.h"
#include "WaitUntil.h"

// Every member that reads or writes a file meets files that are not what they seem.

namespace oxil::test {
namespace {

using namespace std::chrono_literals;
using testing::IsEmpty;
using testing::SizeIs;

/** A stylesheet, which is a document as well, that anything may follow which is no element. */
const std::string DOCUMENT =
    "<s:stylesheet version='1.0' xmlns:s='http://www.w3.org/1999/XSL/Transform'>"
    "<s:output method='text'/></s:stylesheet>\n";

const std::string SCRIPT = "answer = 42\n";

/** A member that reads a file. */
struct Reader {
    const char* name;
    std::function<bool(const std::string& path)> read;  ///< whether it says that it has
    std::string content;                                ///< that it takes
    std::string comment;                                ///< that may follow
    bool isPlain;  ///< whether it takes the path as the name of a regular file
};

bool isDocument(const std::unique_ptr<XmlDocument>& document)
{
    if (document != nullptr) {
        EXPECT_EQ(document->getRootElement().getName(), "s:stylesheet");
    }
    return document != nullptr;
}

/** Whether a file is read as events; if so, all of them. */
template <typename... How>
bool readEvents(const std::string& path, How... how)
{
    int ends = 0;
    Xml xml;
    xml.setOnEndElement([&ends](const std::string&) { ++ends; });
    const bool isRead = xml.read(path, how...) == STATUS_SUCCESS;
    EXPECT_EQ(ends, isRead ? 2 : ends);
    return isRead;
}

const std::vector<Reader>& readers()
{
    static const std::vector<Reader> all = [] {
        const std::string comment = "<!-- more -->\n";
        using Path = const std::string&;
        return std::vector<Reader>{
            {"read", [](Path path) { return readEvents(path); }, DOCUMENT, comment, false},
            {"read exactly", [](Path path) { return readEvents(path, EXACT_TEXT); }, DOCUMENT,
             comment, false},
            {"read plainly", [](Path path) { return readEvents(path, PLAIN_FILE); }, DOCUMENT,
             comment, true},
            {"load",
             [](Path path) { return isDocument(std::unique_ptr<XmlDocument>(Xml(path).load())); },
             DOCUMENT, comment, false},
            {"load plainly",
             [](Path path) {
                 return isDocument(std::unique_ptr<XmlDocument>(Xml().load(path, PLAIN_FILE)));
             },
             DOCUMENT, comment, true},
            {"loadFile", [](Path path) { return isDocument(XmlDocument::loadFile(path)); },
             DOCUMENT, comment, true},
            {"stylesheet", [](Path path) { return XmlStyleSheet(path).load() == STATUS_SUCCESS; },
             DOCUMENT, comment, false},
            {"stylesheet, plainly",
             [](Path path) { return XmlStyleSheet(path).load(PLAIN_FILE) == STATUS_SUCCESS; },
             DOCUMENT, comment, true},
            {"script",
             [](Path path) {
                 LuaScript script(path);
                 return script.load() == STATUS_SUCCESS;
             },
             SCRIPT, "-- more\n", false}};
    }();
    return all;
}

/** A folder for the files, which goes with the test. */
class MisbehavingFilesTest : public testing::Test {
protected:
    MisbehavingFilesTest()
    {
        std::string name = testing::TempDir() + "oxil-files-XXXXXX";
        EXPECT_NE(mkdtemp(name.data()), nullptr);
        folder = name;
        path = folder + "/file";
    }

    ~MisbehavingFilesTest() override { std::filesystem::remove_all(folder); }

    void make(const std::string& content) const
    {
        std::ofstream file(path, std::ios::binary);
        file << content;
        EXPECT_TRUE(file.flush());
    }

    /** Each reader says that it has not read the file, in one line of the log. */
    void expectRefusals() const
    {
        const EngineMessages quiet;
        for (const Reader& reader : readers()) {
            SCOPED_TRACE(reader.name);
            const LogCapture log;
            EXPECT_FALSE(reader.read(path));
            EXPECT_THAT(log.lines(), SizeIs(1));
        }
    }

    std::string folder;
    std::string path;
};

// ---- Reading ------------------------------------------------------------------------------------

TEST_F(MisbehavingFilesTest, AFileThatIsAsItShouldBeIsRead)
{
    for (const Reader& reader : readers()) {
        make(reader.content);
        EXPECT_TRUE(reader.read(path)) << reader.name;
    }
}

TEST_F(MisbehavingFilesTest, WhatIsNotThereIsRefused)
{
    expectRefusals();
}

TEST_F(MisbehavingFilesTest, AFolderIsRefused)
{
    std::filesystem::create_directory(path);
    expectRefusals();
}

/** Takes from this thread, while it lives, what root may do with files of others. */
class AsNobody {
public:
    AsNobody() : __before(setfsuid(NOBODY)) {}
    ~AsNobody() { setfsuid(static_cast<uid_t>(__before)); }

    AsNobody(const AsNobody&) = delete;
    AsNobody& operator=(const AsNobody&) = delete;

private:
    static constexpr uid_t NOBODY = 65534;

    int __before;
};

TEST_F(MisbehavingFilesTest, AFileThatMustNotBeReadIsRefused)
{
    make(DOCUMENT);
    ASSERT_EQ(chmod(path.c_str(), 0), 0);
    const AsNobody nobody;
    if (access(path.c_str(), F_OK) == 0 && std::ifstream(path)) {
        GTEST_SKIP() << "this user may read everything";
    }
    expectRefusals();
}

TEST_F(MisbehavingFilesTest, ThreeGigabytesOfNothingAreRefusedAtOnce)
{
    for (const Reader& reader : readers()) {
        SCOPED_TRACE(reader.name);
        make(reader.content.substr(0, 9));  // zeros behind the end are none of libxml2's business
        std::error_code error;
        std::filesystem::resize_file(path, std::uintmax_t{3} << 30U, error);  // sparse
        if (error) {
            GTEST_SKIP() << "no file of this system is as large";
        }
        const EngineMessages quiet;
        const LogCapture log;
        EXPECT_FALSE(reader.read(path));
        EXPECT_THAT(log.lines(), SizeIs(1));
    }
}

TEST_F(MisbehavingFilesTest, APipeWithoutWriterIsRefusedByThePlainOnes)
{
    ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    for (const Reader& reader : readers()) {
        if (reader.isPlain) {
            SCOPED_TRACE(reader.name);
            const LogCapture log;
            EXPECT_FALSE(reader.read(path));
            EXPECT_THAT(log.lines(), SizeIs(1));
        }
    }
}

/** Writes to a pipe as soon as somebody opens it to read; false if nobody does. */
bool writeToReader(const std::string& path, const std::string& content)
{
    sigset_t brokenPipe;
    sigemptyset(&brokenPipe);
    sigaddset(&brokenPipe, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &brokenPipe, nullptr);  // the reader may be gone already
    int pipe = -1;
    const bool isOpen = waitUntil(
        [&] { return (pipe = open(path.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC)) != -1; }, 10s);
    if (isOpen) {
        static_cast<void>(write(pipe, content.data(), content.size()) + 1);
        close(pipe);
    }
    return isOpen;
}

TEST_F(MisbehavingFilesTest, TheOthersWaitForTheWriterOfAPipe)
{
    ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    for (const Reader& reader : readers()) {
        if (reader.isPlain) {
            continue;
        }
        SCOPED_TRACE(reader.name);
        bool isRead = false;
        std::thread writer([&] { isRead = writeToReader(path, reader.content); });
        const LogCapture log;
        // Events need the size of the file, which a pipe has not.
        const bool readsEvents = std::string(reader.name).compare(0, 4, "read") == 0;
        EXPECT_EQ(reader.read(path), !readsEvents);
        EXPECT_THAT(log.lines(), SizeIs(readsEvents ? 1 : 0));
        writer.join();
        EXPECT_TRUE(isRead);
    }
}

TEST_F(MisbehavingFilesTest, WhatVanishesWhileItIsReadIsReadToItsEnd)
{
    for (const bool isPlain : {false, true}) {
        make("<a>one<b/>two</a>");
        int ends = 0;
        Xml xml;
        xml.setOnStartElement([this](const std::string&, const std::vector<std::string>&) {
            std::filesystem::remove(path);
        });
        xml.setOnEndElement([&ends](const std::string&) { ++ends; });
        EXPECT_EQ(isPlain ? xml.read(path, PLAIN_FILE) : xml.read(path), STATUS_SUCCESS);
        EXPECT_EQ(ends, 2);
    }

    make("os.remove('" + path + "') removed = true function isRemoved() return removed end");
    LuaScript script(path);
    EXPECT_EQ(script.load(), STATUS_SUCCESS);
    bool isRemoved = false;
    EXPECT_EQ(script.callMethod("isRemoved", std::tie(isRemoved)), STATUS_SUCCESS);
    EXPECT_TRUE(isRemoved);

    expectRefusals();  // from then on
}

TEST_F(MisbehavingFilesTest, WhatGrowsWhileItIsReadIsReadAsFarAsItGoes)
{
    // What is written across the border of two pages may be seen by halves.
    constexpr std::size_t SIZE = 256;
    for (const Reader& reader : readers()) {
        SCOPED_TRACE(reader.name);
        const std::string comment =
            std::string(SIZE - reader.comment.size(), '\n') + reader.comment;
        make(reader.content + std::string(SIZE - reader.content.size() % SIZE, '\n'));
        std::atomic<bool> isOver{false};
        std::thread writer([&] {
            const int file = open(path.c_str(), O_WRONLY | O_APPEND | O_CLOEXEC);
            for (int i = 0; i < 20000 && !isOver; ++i) {
                EXPECT_NE(write(file, comment.data(), comment.size()), -1);
            }
            close(file);
        });
        for (int i = 0; i < 20; ++i) {
            EXPECT_TRUE(reader.read(path));
        }
        isOver = true;
        writer.join();
    }
}

TEST_F(MisbehavingFilesTest, WhatIsReplacedAgainAndAgainIsReadOrRefused)
{
    const EngineMessages quiet;
    for (const Reader& reader : readers()) {
        SCOPED_TRACE(reader.name);
        make(reader.content);
        std::atomic<bool> isOver{false};
        std::thread writer([&] {
            while (!isOver) {
                EXPECT_EQ(truncate(path.c_str(), 0), 0);
                make(reader.content + reader.comment);
            }
        });
        for (int i = 0; i < 50; ++i) {
            const LogCapture log;
            const bool isRead = reader.read(path);
            EXPECT_THAT(log.lines(), SizeIs(isRead ? 0 : 1));
        }
        isOver = true;
        writer.join();
    }
}

// ---- Writing ------------------------------------------------------------------------------------

/** Writes a document in each of the ways in which one is written to a file. */
class MisbehavingOutputTest : public MisbehavingFilesTest {
protected:
    struct Way {
        bool isStyled;
        bool isPlain;
    };
    static constexpr Way WAYS[] = {{false, false}, {false, true}, {true, false}, {true, true}};

    MisbehavingOutputTest()
    {
        make(DOCUMENT);
        EXPECT_EQ(styleSheet.load(PLAIN_FILE), STATUS_SUCCESS);
        std::filesystem::remove(path);
    }

    /** A document with so much text. */
    static std::unique_ptr<XmlDocument> makeDocument(std::size_t size)
    {
        auto root = std::make_unique<XmlNode>("root");
        EXPECT_EQ(root->setContent(std::string(size, 'x')), STATUS_SUCCESS);
        auto document = std::make_unique<XmlDocument>();
        EXPECT_EQ(document->setRootNode(std::move(root)), STATUS_SUCCESS);
        return document;
    }

    /** Whether it says that it has written the document. If so, all of it has to be there. */
    bool write(XmlDocument& document, Way way)
    {
        SCOPED_TRACE(testing::Message()
                     << (way.isStyled ? "styled" : "as it is") << (way.isPlain ? ", plainly" : ""));
        if (way.isStyled) {
            document.__setXmlStyleSheet(&styleSheet);
        }
        document.setOutputFilePath(path);
        const EngineMessages quiet;
        const LogCapture log;
        const int result = way.isPlain ? document.write(PLAIN_FILE) : document.write();
        EXPECT_THAT(log.lines(), SizeIs(result == STATUS_SUCCESS ? 0 : 1));
        if (result != STATUS_SUCCESS) {
            EXPECT_EQ(result, STATUS_INVALID_STATE);
            return false;
        }
        std::string whole;
        EXPECT_EQ(document.write(whole), STATUS_SUCCESS);
        std::ifstream file(path, std::ios::binary);
        const std::string written{std::istreambuf_iterator<char>(file), {}};
        EXPECT_TRUE(written == whole) << written.size() << " of " << whole.size();
        return true;
    }

    XmlStyleSheet styleSheet{path};
};

/** A file system of this size, which is mounted as long as this object lives. */
class SmallDisk {
public:
    SmallDisk(const std::string& folder, const std::string& size) : __folder(folder)
    {
        std::filesystem::create_directory(__folder);
        __error =
            mount("none", __folder.c_str(), "tmpfs", 0, ("size=" + size).c_str()) == 0 ? 0 : errno;
    }

    ~SmallDisk()
    {
        if (__error == 0) {
            umount2(__folder.c_str(), MNT_DETACH);
        }
    }

    SmallDisk(const SmallDisk&) = delete;
    SmallDisk& operator=(const SmallDisk&) = delete;

    /** Why there is none; 0 if there is one. */
    int getError() const { return __error; }

private:
    std::string __folder;
    int __error;
};

TEST_F(MisbehavingOutputTest, WhatAFullDiskHasNoRoomForIsNotReportedAsWritten)
{
    const SmallDisk disk(folder + "/disk", "64k");
    if (disk.getError() != 0) {
        GTEST_SKIP() << "nothing can be mounted: " << std::strerror(disk.getError());
    }
    path = folder + "/disk/file";
    for (const Way way : WAYS) {
        bool fits = true;
        for (const std::size_t kilobytes : {1U, 40U, 60U, 63U, 64U, 65U, 100U, 1000U}) {
            const bool isWritten = write(*makeDocument(1024 * kilobytes), way);
            EXPECT_TRUE(fits || !isWritten) << kilobytes;
            fits = isWritten;
        }
        EXPECT_FALSE(fits);
        EXPECT_TRUE(write(*makeDocument(1), way)) << "the room that the others took is there again";
    }
}

TEST_F(MisbehavingOutputTest, WhatIsCutOffAnywhereIsNotReportedAsWritten)
{
    const auto document = makeDocument(10000);
    for (const Way way : WAYS) {
        for (const std::size_t size : {0U, 1U, 4095U, 4096U, 8191U, 9999U}) {
            const FileSizeLimit limit(size);
            EXPECT_FALSE(write(*document, way)) << size;
        }
        EXPECT_TRUE(write(*document, way));
    }
}

TEST_F(MisbehavingOutputTest, ADeviceThatIsFullIsReported)
{
    path = "/dev/full";
    for (const Way way : WAYS) {
        EXPECT_FALSE(write(*makeDocument(1), way));
        EXPECT_FALSE(write(*makeDocument(100000), way));
    }
}

TEST_F(MisbehavingOutputTest, WhatMustNotBeWrittenIsRefused)
{
    const auto document = makeDocument(1);
    path = folder;
    for (const Way way : WAYS) {
        EXPECT_FALSE(write(*document, way)) << "a folder";
    }
    path = folder + "/no-such-folder/file";
    for (const Way way : WAYS) {
        EXPECT_FALSE(write(*document, way)) << "in no folder";
    }
    path = folder + "/file";
    make("of somebody else's");
    ASSERT_EQ(chmod(path.c_str(), 0), 0);
    const AsNobody nobody;
    if (access(path.c_str(), F_OK) == 0 && std::ofstream(path, std::ios::app)) {
        GTEST_SKIP() << "this user may write everything";
    }
    for (const Way way : WAYS) {
        EXPECT_FALSE(write(*document, way)) << "not permitted";
    }
}

TEST_F(MisbehavingOutputTest, APipeIsRefusedByThePlainOnes)
{
    ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    for (const Way way : WAYS) {
        if (way.isPlain) {
            EXPECT_FALSE(write(*makeDocument(1), way));
            const int reader = open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
            EXPECT_FALSE(write(*makeDocument(1), way)) << "although it has a reader";
            close(reader);
        }
    }
}

TEST_F(MisbehavingOutputTest, WithoutStyleSheetTheReaderOfAPipeIsWaitedFor)
{
    ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    std::string received;
    std::thread reader([&] {
        std::ifstream pipe(path, std::ios::binary);
        received.assign(std::istreambuf_iterator<char>(pipe), {});
    });
    const auto document = makeDocument(200000);
    document->setOutputFilePath(path);
    EXPECT_EQ(document->write(), STATUS_SUCCESS);
    reader.join();
    std::string whole;
    EXPECT_EQ(document->write(whole), STATUS_SUCCESS);
    EXPECT_TRUE(received == whole);
}

TEST_F(MisbehavingOutputTest, WithAStyleSheetAPipeThatNobodyReadsSwallowsTheDocument)
{
    ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    const auto document = makeDocument(1);
    document->__setXmlStyleSheet(&styleSheet);
    document->setOutputFilePath(path);
    EXPECT_EQ(document->write(), STATUS_SUCCESS);

    const int reader = open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    char byte = '\0';
    EXPECT_EQ(read(reader, &byte, 1), 0);
    close(reader);
}

}  // namespace
}  // namespace oxil::test
