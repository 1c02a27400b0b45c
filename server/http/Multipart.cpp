#include "http/Multipart.h"
#include "base/Text.h"

namespace kvx::server {

namespace {

constexpr std::size_t headLimit = 4096;

} // namespace

MultipartReader::MultipartReader(std::string_view boundary, std::size_t requestLimit)
    : m_first("--" + std::string(boundary))
    , m_delimiter("\r\n" + m_first)
    , m_requestLimit(requestLimit)
{
}

void MultipartReader::feed(std::string_view bytes)
{
    m_data = {};
    m_earlier.assign(m_pending, m_used, std::string::npos);
    m_earlier.append(bytes);
    m_earlier.swap(m_pending);
    m_used = 0;
}

MultipartReader::Event MultipartReader::next()
{
    m_data = {};
    while (true) {
        switch (m_state) {
        case State::Start:
            if (!takeLine(m_first))
                return Event::NeedMore;
            m_state = State::RequestHead;
            break;
        case State::RequestHead:
            if (!readHead("jsonPart"))
                return Event::NeedMore;
            m_state = State::RequestBody;
            break;
        case State::RequestBody: {
            bool complete = false;
            m_request.append(takeBody(complete));
            if (m_request.size() > m_requestLimit)
                throw MultipartError("the part \"jsonPart\" is too long");
            if (!complete)
                return Event::NeedMore;
            m_state = State::Between;
            return Event::Request;
        }
        case State::Between:
            if (!takeLine({}))
                return Event::NeedMore;
            m_state = State::DataHead;
            break;
        case State::DataHead:
            if (!readHead("dataPart"))
                return Event::NeedMore;
            m_state = State::DataBody;
            break;
        case State::DataBody: {
            bool complete = false;
            m_data = takeBody(complete);
            if (complete)
                m_state = State::Closing;
            if (!m_data.empty())
                return Event::Data;
            if (!complete)
                return Event::NeedMore;
            break;
        }
        case State::Closing:
            if (m_pending.size() - m_used < 2)
                return Event::NeedMore;
            if (m_pending.compare(m_used, 2, "--") != 0)
                throw MultipartError("there is a third part");
            m_state = State::End;
            break;
        case State::End:
            m_used = m_pending.size();
            return Event::End;
        }
    }
}

bool MultipartReader::takeLine(std::string_view marker)
{
    // After a boundary: white space, then the end of the line.
    const std::size_t end = m_pending.find("\r\n", m_used);
    if (end == std::string::npos) {
        if (m_pending.size() - m_used > headLimit)
            throw MultipartError("the form does not begin with its boundary");
        return false;
    }
    const std::string_view line(m_pending.data() + m_used, end - m_used);
    if (line.substr(0, marker.size()) != marker
        || line.substr(marker.size()).find_first_not_of(" \t") != std::string_view::npos)
        throw MultipartError(marker.empty() ? "the part \"dataPart\" is missing"
                                            : "the form does not begin with its boundary");
    m_used = end + 2;
    return true;
}

bool MultipartReader::readHead(const char *name)
{
    const std::size_t end = m_pending.find("\r\n\r\n", m_used);
    if (end == std::string::npos) {
        if (m_pending.size() - m_used > headLimit)
            throw MultipartError("the head of a part is too long");
        return false;
    }
    const std::string head = lowerAscii(std::string_view(m_pending).substr(m_used, end - m_used));
    const std::string wanted = lowerAscii(name);
    if (head.find("name=\"" + wanted + "\"") == std::string::npos
        && (head + ";").find("name=" + wanted + ";") == std::string::npos
        && head.find("name=" + wanted + "\r\n") == std::string::npos)
        throw MultipartError(std::string("the part \"") + name + "\" is missing");
    m_used = end + 4;
    return true;
}

std::string_view MultipartReader::takeBody(bool &complete)
{
    const std::size_t end = m_pending.find(m_delimiter, m_used);
    complete = end != std::string::npos;
    std::size_t stop = end;
    if (!complete) {
        const std::size_t kept = m_delimiter.size() - 1;
        stop = m_pending.size() - m_used > kept ? m_pending.size() - kept : m_used;
    }
    const std::string_view body(m_pending.data() + m_used, stop - m_used);
    m_used = complete ? stop + m_delimiter.size() : stop;
    return body;
}

std::string multipartBoundary(std::string_view contentType)
{
    if (lowerAscii(contentType.substr(0, 19)) != "multipart/form-data")
        return {};
    const std::size_t at = lowerAscii(contentType).find("boundary=");
    if (at == std::string::npos)
        return {};
    std::string_view value = contentType.substr(at + 9);
    if (!value.empty() && value.front() == '"') {
        value.remove_prefix(1);
        value = value.substr(0, value.find('"'));
    } else {
        value = value.substr(0, value.find_first_of("; \t"));
    }
    return value.size() <= 70 ? std::string(value) : std::string();
}

} // namespace kvx::server
