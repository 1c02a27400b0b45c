#include "ServiceHarness.h"

#include "base/Digest.h"
#include "http/Multipart.h"
#include "http/UploadStream.h"

#include <filesystem>

using namespace kvx::server;
using kvx::test::TemporaryFolder;

namespace {

std::string formOf(const std::string &request, const std::string &data)
{
    return "--b\r\nContent-Disposition: form-data; name=\"jsonPart\"\r\nContent-Type: "
           "application/json\r\n\r\n"
        + request
        + "\r\n--b\r\nContent-Disposition: form-data; name=\"dataPart\"; filename=\"x\"\r\n\r\n"
        + data + "\r\n--b--\r\n";
}

struct Form {
    std::string request;
    std::string data;
    bool ended = false;
};

Form readForm(const std::string &bytes, std::size_t step)
{
    Form form;
    MultipartReader reader("b", 1000);
    for (std::size_t at = 0; at < bytes.size(); at += step) {
        reader.feed(std::string_view(bytes).substr(at, step));
        for (auto event = reader.next(); event != MultipartReader::Event::NeedMore;
             event = reader.next()) {
            if (event == MultipartReader::Event::Request)
                form.request = reader.request();
            else if (event == MultipartReader::Event::Data)
                form.data += reader.data();
            else if (event == MultipartReader::Event::End) {
                form.ended = true;
                break;
            }
        }
    }
    return form;
}

} // namespace

TEST(ServerMultipart, IsReadTheSameHoweverItsBytesArrive)
{
    const std::string data
        = "\r\n--\r\n-b\r\n--a\r\n\r\n--" + std::string(300, '\r') + "\n--" + std::string("\0x", 2);
    const std::string bytes = formOf("{\"service\":\"upload\"}", data);
    for (std::size_t step = 1; step <= bytes.size(); ++step) {
        const Form form = readForm(bytes, step);
        ASSERT_EQ(form.request, "{\"service\":\"upload\"}") << step;
        ASSERT_EQ(form.data, data) << step;
        ASSERT_TRUE(form.ended) << step;
    }
}

TEST(ServerMultipart, APieceStaysWhileTheNextIsFed)
{
    std::string data;
    for (int i = 0; i < 300; ++i)
        data += std::to_string(i); // no two pieces are alike
    const std::string bytes = formOf("{}", data);
    MultipartReader reader("b", 1000);
    std::string_view earlier;
    std::string whole;
    for (std::size_t at = 0; at < bytes.size(); at += 100) {
        reader.feed(std::string_view(bytes).substr(at, 100));
        whole += earlier; // read only now, as a digest beside the reading does
        earlier = {};
        for (auto event = reader.next();
             event != MultipartReader::Event::NeedMore && event != MultipartReader::Event::End;
             event = reader.next()) {
            if (event == MultipartReader::Event::Data)
                earlier = reader.data();
        }
    }
    EXPECT_EQ(whole + std::string(earlier), data);
}

TEST(ServerUpload, ItsDigestsAreRightHoweverItsEndArrives)
{
    const TemporaryFolder folder;
    Config config;
    config.data = folder.path;
    std::filesystem::create_directories(config.temporaryFolder());
    boost::asio::thread_pool digests(2);
    const std::string data(1 << 20, 'd');
    const std::string bytes = formOf("{}", data);
    const std::size_t dataBegin = bytes.find(data);
    const std::size_t dataEnd = dataBegin + data.size();
    for (std::size_t first = dataEnd; first < bytes.size(); ++first) {
        for (std::size_t second = first; second < bytes.size(); ++second) {
            UploadStream upload(config, "b", digests);
            ASSERT_EQ(upload.feed(std::string_view(bytes).substr(0, dataBegin)),
                UploadStream::Progress::RequestReady);
            upload.open(0);
            upload.feed({});
            upload.feed(std::string_view(bytes).substr(dataBegin, first - dataBegin));
            upload.feed(std::string_view(bytes).substr(first, second - first));
            ASSERT_EQ(upload.feed(std::string_view(bytes).substr(second)),
                UploadStream::Progress::Complete);
            const auto file = upload.finish();
            ASSERT_EQ(file->size, static_cast<std::int64_t>(data.size()));
            ASSERT_EQ(file->sha256, sha256(data)) << first - dataEnd << ' ' << second - dataEnd;
            ASSERT_EQ(file->md5, md5(data)) << first - dataEnd << ' ' << second - dataEnd;
        }
    }
}

TEST(ServerMultipart, AnEmptyFileIsAFile)
{
    const Form form = readForm(formOf("{}", ""), 7);
    EXPECT_TRUE(form.ended);
    EXPECT_EQ(form.data, "");
}

TEST(ServerMultipart, CutAnywhereItNeverEnds)
{
    const std::string bytes = formOf("{}", "data");
    for (std::size_t length = 0; length + 4 < bytes.size(); ++length)
        EXPECT_FALSE(readForm(bytes.substr(0, length), 5).ended) << length;
}

TEST(ServerMultipart, TheBoundaryIsFoundInTheContentType)
{
    EXPECT_EQ(multipartBoundary("multipart/form-data; boundary=abc"), "abc");
    EXPECT_EQ(multipartBoundary("Multipart/Form-Data; charset=x; Boundary=\"a b\"; y=1"), "a b");
    EXPECT_EQ(multipartBoundary("multipart/form-data"), "");
    EXPECT_EQ(multipartBoundary("multipart/mixed; boundary=abc"), "");
    EXPECT_EQ(multipartBoundary("multipart/form-data; boundary=" + std::string(80, 'x')), "");
}
