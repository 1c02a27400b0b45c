#include "base/Config.h"
#include "base/Log.h"
#include "http/Connection.h"

#include <boost/asio/post.hpp>

namespace kvx::server {

namespace asio = boost::asio;

// Each step on a file thread posts its outcome back before anything else of this connection runs.

void Connection::feedUpload(std::size_t size)
{
    asio::post(m_context.files, [self = shared_from_this(), size] {
        try {
            const auto progress = self->m_upload->feed({ self->m_chunk.data(), size });
            asio::post(self->m_socket.get_executor(),
                [self, progress] { self->onUploadProgress(progress); });
        } catch (const UploadError &error) {
            asio::post(self->m_socket.get_executor(),
                [self, error] { self->refuseUpload(error.code, error.httpStatus, error.what()); });
        }
    });
}

void Connection::onUploadProgress(UploadStream::Progress progress)
{
    m_context.dispatcher.noteProgress(m_exchange);
    switch (progress) {
    case UploadStream::Progress::RequestReady:
        onUploadRequest();
        return;
    case UploadStream::Progress::Complete:
        finishUpload();
        return;
    case UploadStream::Progress::More:
        if (m_parser->is_done())
            refuseUpload(StatusCode::BadRequest, 400, "the form ends too early");
        else
            readBody();
        return;
    }
}

void Connection::onUploadRequest()
{
    m_exchange->body = m_upload->request();
    m_context.dispatcher.beginUpload(m_exchange, [self = shared_from_this()](Reply decision) {
        asio::post(self->m_socket.get_executor(), [self, decision = std::move(decision)]() mutable {
            if (!decision.isOk()) {
                self->m_upload.reset();
                self->m_bodyUse = BodyUse::Discard;
                self->answer(std::move(decision));
                return;
            }
            const auto announced = self->m_parser->content_length();
            asio::post(self->m_context.files, [self, announced] {
                try {
                    self->m_upload->open(static_cast<std::int64_t>(announced.value_or(0)));
                    const auto progress = self->m_upload->feed({});
                    asio::post(self->m_socket.get_executor(),
                        [self, progress] { self->onUploadProgress(progress); });
                } catch (const UploadError &error) {
                    asio::post(self->m_socket.get_executor(), [self, error] {
                        self->refuseUpload(error.code, error.httpStatus, error.what());
                    });
                }
            });
        });
    });
}

void Connection::finishUpload()
{
    if (!m_parser->is_done()) {
        // Only the line end after the closing boundary may follow.
        readBody();
        return;
    }
    asio::post(m_context.files, [self = shared_from_this()] {
        try {
            self->m_exchange->file = self->m_upload->finish();
        } catch (const UploadError &error) {
            asio::post(self->m_socket.get_executor(),
                [self, error] { self->refuseUpload(error.code, error.httpStatus, error.what()); });
            return;
        }
        asio::post(self->m_socket.get_executor(), [self] {
            self->m_upload.reset();
            self->watchPeer();
            self->m_context.dispatcher.finishUpload(self->m_exchange, [self](Reply reply) {
                asio::post(self->m_socket.get_executor(),
                    [self, reply = std::move(reply)]() mutable { self->answer(std::move(reply)); });
            });
        });
    });
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
