#include "services/Reply.h"

namespace kvx::server {

Reply Reply::file(FileBody body)
{
    Reply reply = ok();
    reply.m_file = std::make_shared<FileBody>(std::move(body));
    return reply;
}

Reply Reply::held(std::string key, std::int64_t patience, std::uint64_t place,
    std::optional<std::int64_t> recheck)
{
    Reply reply = ok();
    reply.m_heldKey = std::move(key);
    reply.m_patience = patience;
    reply.m_place = place;
    reply.m_recheck = recheck;
    return reply;
}

Reply Reply::heavy()
{
    Reply reply = ok();
    reply.m_heavy = true;
    return reply;
}

Reply::Continuation Reply::refusing(StatusCode code, const std::string &argument)
{
    return [code, argument](Call &) { return refused(code, { argument }); };
}

Reply &Reply::setLazy()
{
    m_lazy = true;
    return *this;
}

Reply Reply::after(Work work, Pool pool)
{
    Reply reply = ok();
    reply.m_pool = pool;
    reply.m_work = std::move(work);
    return reply;
}

Reply &Reply::setJson(const char *key, std::string_view json)
{
    m_members += ',';
    m_members += jsonText(key);
    m_members += ':';
    m_members += json;
    return *this;
}

bool Reply::has(const char *key) const
{
    return m_members.find(',' + jsonText(key) + ':') != std::string::npos;
}

Reply &Reply::setCookie(std::string token)
{
    m_cookie = std::make_shared<std::string>(std::move(token));
    return *this;
}

Reply &Reply::setHttpStatus(int status)
{
    m_httpStatus = status;
    return *this;
}

std::string Reply::json(const std::string &requestId) const
{
    std::string result = "{\"statuscode\":" + std::to_string(static_cast<int>(m_status));
    if (!isOk()) {
        std::vector<std::string> arguments = m_arguments;
        if (m_status == StatusCode::Failed)
            arguments = { requestId };
        const std::string sentence = jsonText(statusSentence(m_status, arguments));
        result += ",\"error\":" + jsonText(statusWord(m_status)) + ",\"message\":" + sentence;
        if (m_repeatSentence)
            result += ",\"\":" + sentence;
        result += ",\"requestId\":" + jsonText(requestId);
    }
    result.reserve(result.size() + m_members.size() + 1);
    result += m_members;
    result += '}';
    return result;
}

void Reply::render(const std::string &requestId)
{
    m_body = json(requestId);
    std::string().swap(m_members); // a list of projects is large
}

} // namespace kvx::server
