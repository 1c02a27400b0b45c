#include "base/Config.h"
#include "base/Log.h"
#include "http/Connection.h"

#include <boost/asio/dispatch.hpp>
#include <boost/asio/post.hpp>

namespace kvx::server {

namespace asio = boost::asio;

// What blocks on the disk runs on a file thread, as far as it gets without more bytes; then it
// posts its outcome back, before anything else of this connection runs.

void Connection::feedUpload(std::size_t size)
{
    asio::post(m_context.files, [self = shared_from_this(), size] {
        self->onFileThread([self, size] {
            self->advanceUpload(self->m_upload->feed({ self->m_chunk.data(), size }));
        });
    });
}

void Connection::onFileThread(const std::function<void()> &step)
{
    try {
        step();
    } catch (const UploadError &error) {
        asio::post(m_socket.get_executor(), [self = shared_from_this(), error] {
            self->refuseUpload(error.code, error.httpStatus, error.what());
        });
    }
}

void Connection::advanceUpload(UploadStream::Progress progress)
{
    m_context.dispatcher.noteProgress(m_exchange);
    if (progress == UploadStream::Progress::RequestReady) {
        judgeUpload();
        return;
    }
    if (progress == UploadStream::Progress::Complete && m_parser->is_done()) {
        finishUpload();
        return;
    }
    asio::post(m_socket.get_executor(), [self = shared_from_this(), progress] {
        // After the closing boundary only its line end may follow.
        if (progress == UploadStream::Progress::More && self->m_parser->is_done())
            self->refuseUpload(StatusCode::BadRequest, 400, "the form ends too early");
        else
            self->readBody();
    });
}

void Connection::judgeUpload()
{
    m_exchange->body = m_upload->request();
    m_context.dispatcher.beginUpload(m_exchange, [self = shared_from_this()](Reply decision) {
        if (decision.isOk()) {
            asio::dispatch(self->m_context.files, [self] {
                self->onFileThread([self] {
                    const auto announced = self->m_parser->content_length();
                    self->m_upload->open(static_cast<std::int64_t>(announced.value_or(0)));
                    self->advanceUpload(self->m_upload->feed({}));
                });
            });
            return;
        }
        asio::post(self->m_socket.get_executor(), [self, decision = std::move(decision)]() mutable {
            self->m_upload.reset();
            self->m_bodyUse = BodyUse::Discard;
            self->answer(std::move(decision));
        });
    });
}

void Connection::finishUpload()
{
    m_exchange->file = m_upload->finish();
    asio::post(m_socket.get_executor(), [self = shared_from_this()] {
        self->m_upload.reset();
        self->watchPeer();
    });
    m_context.dispatcher.finishUpload(m_exchange,
        [self = shared_from_this()](Reply reply) { self->answerSoon(std::move(reply)); });
}

void Connection::refuseUpload(StatusCode code, int httpStatus, const std::string &argument)
{
    if (code == StatusCode::Failed)
        logLine(LogLevel::Error, "upload failed", { { "cause", argument } });
    m_upload.reset();
    m_bodyUse = BodyUse::Discard;
    refuse(code, httpStatus, argument, false);
}

} // namespace kvx::server
