#pragma once

#include "support/FakeNetwork.h"

#include <QJsonObject>
#include <QList>
#include <functional>

namespace kvx::test {

/// Passes requests on to another transport and loses or refuses single ones; keeps what the client
/// really got to see.
class LossyNetwork : public FakeNetwork {
public:
    enum Fault {
        None,
        RequestLost, ///< the server never sees it
        ReplyLost, ///< the server acted, the client hears nothing
        Refused ///< the server did not act and says so
    };
    struct Exchange {
        QJsonObject request;
        bool carried;
        QJsonObject reply;
    };

    explicit LossyNetwork(FakeNetwork &server)
        : m_server(server)
    {
        KVXNetwork::setInstance(this);
    }
    ~LossyNetwork() override { KVXNetwork::setInstance(&m_server); }

    /// The fault of the request with this number, from 0.
    std::function<Fault(int)> fault;
    QList<Exchange> exchanges;

    bool post(const QString &url, const QJsonObject &request, QJsonObject &reply, void *receiver,
        ProgressFunction progress) override
    {
        const Fault now = fault ? fault(exchanges.size()) : None;
        bool carried = now == Refused;
        QJsonObject answer;
        if (now == Refused)
            answer.insert(QStringLiteral("statuscode"), 0);
        else if (now != RequestLost)
            carried = m_server.post(url, request, answer, receiver, progress) && now == None;
        if (!carried)
            answer = QJsonObject();
        reply = answer;
        exchanges.append({ request, carried, answer });
        return carried;
    }

private:
    FakeNetwork &m_server;
};

} // namespace kvx::test
