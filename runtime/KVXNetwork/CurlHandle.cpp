#include "CurlHandle.h"

#include <sys/socket.h>

namespace kvx {

namespace {

const long KeptConnections = 4;
const int LongestPoll = 1000; // ms; abort() ends a poll earlier

} // namespace

CurlHandle::CurlHandle()
    : m_easy(curl_easy_init())
    , m_multi(curl_multi_init())
{
    curl_multi_setopt(m_multi, CURLMOPT_MAXCONNECTS, KeptConnections);
}

CurlHandle::~CurlHandle()
{
    curl_easy_cleanup(m_easy);
    curl_multi_cleanup(m_multi);
}

// The multi interface, because its wait can be ended from another thread.
CURLcode CurlHandle::run()
{
    if (curl_multi_add_handle(m_multi, m_easy) != CURLM_OK)
        return CURLE_FAILED_INIT;
    CURLcode result = CURLE_ABORTED_BY_CALLBACK;
    int running = 1;
    while (running > 0 && !m_aborted) {
        if (curl_multi_perform(m_multi, &running) != CURLM_OK)
            break;
        if (running > 0)
            curl_multi_poll(m_multi, nullptr, 0, LongestPoll, nullptr);
    }
    int left = 0;
    while (const CURLMsg *message = curl_multi_info_read(m_multi, &left)) {
        if (message->msg == CURLMSG_DONE)
            result = message->data.result;
    }
    curl_easy_getinfo(m_easy, CURLINFO_ACTIVESOCKET, &m_socket);
    curl_multi_remove_handle(m_multi, m_easy);
    return result;
}

bool CurlHandle::isQuiet() const
{
    char byte = 0;
    return m_socket == CURL_SOCKET_BAD || recv(m_socket, &byte, 1, MSG_PEEK | MSG_DONTWAIT) <= 0;
}

// A handle that is used again keeps a pointer to the last header of its last exchange, whose memory
// is gone: a head that begins with a continued line would be added to that (seen with
// libcurl 7.88).
void CurlHandle::rearm()
{
    m_aborted = false;
    curl_easy_cleanup(m_easy);
    m_easy = curl_easy_init();
}

void CurlHandle::abort()
{
    m_aborted = true;
    curl_multi_wakeup(m_multi);
}

} // namespace kvx
