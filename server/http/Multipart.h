#pragma once

#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>

namespace kvx::server {

/// The form is not what an upload looks like; the text is an argument of status 100.
class MultipartError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// Reads the two parts of an upload as their bytes arrive: "jsonPart", then "dataPart". Holds at
/// most what was fed the last two times and the request part.
class MultipartReader {
public:
    enum class Event {
        NeedMore, ///< feed more bytes
        Request, ///< `request()` is whole
        Data, ///< `data()` is the next piece of the file
        End ///< the closing boundary was read
    };

    /// `requestLimit`: largest request part in bytes.
    MultipartReader(std::string_view boundary, std::size_t requestLimit);

    void feed(std::string_view bytes);
    /// What comes next. Throws MultipartError.
    Event next();

    const std::string &request() const { return m_request; }
    /// Good until more is fed for the second time: a digest may still run when more arrives.
    std::string_view data() const { return m_data; }

private:
    enum class State { Start, RequestHead, RequestBody, Between, DataHead, DataBody, Closing, End };

    bool takeLine(std::string_view marker);
    bool readHead(const char *name);
    /// The bytes up to the next boundary, or as many as surely stand before it.
    std::string_view takeBody(bool &complete);

    const std::string m_first; ///< "--boundary"
    const std::string m_delimiter; ///< "\r\n--boundary"
    const std::size_t m_requestLimit;
    State m_state = State::Start;
    std::string m_pending;
    std::string m_earlier; ///< what was pending before
    std::size_t m_used = 0; ///< bytes at the front of m_pending that are done with
    std::string m_request;
    std::string_view m_data;
};

/// The boundary of a "multipart/form-data; boundary=…" content type; empty when it is none.
std::string multipartBoundary(std::string_view contentType);

} // namespace kvx::server
