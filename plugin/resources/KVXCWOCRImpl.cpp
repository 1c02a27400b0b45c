#include "resources/KVXCWOCRImpl.h"

#include "frame/KVXServerInfo.h"

#include <KVXOCRSDK/KVXOCRClient.h>
#include <new>

KVXCWOCRImpl::KVXCWOCRImpl()
    : m_client(KVXOCRClient::create())
{
    m_client->setUrl(KVXServerInfo::getInstance()->ocrUrl());
    m_client->setWaitingInterval(0);
    connect(m_client.get(), &KVXOCRClient::pageOcred, this, &KVXCWOCR::pageOcred);
    connect(m_client.get(), &KVXOCRClient::finished, this, &KVXCWOCR::finished);
    connect(m_client.get(), &KVXOCRClient::error, this, &KVXCWOCR::error);
    connect(m_client.get(), &KVXOCRClient::waitingTime, this, &KVXCWOCR::remainTime);
}

KVXCWOCRImpl::~KVXCWOCRImpl() = default;

bool KVXCWOCRImpl::recognize(QList<KVXCWOCRParams *> params)
{
    QList<KVXOCRParam *> jobs;
    for (KVXCWOCRParams *element : params) {
        const std::unique_ptr<KVXCWOCRParams> job(element);
        // A null job makes the client refuse the list.
        jobs.append(job ? new (std::nothrow) KVXOCRParam(job->languages,
                        static_cast<KVXOCRParam::OCRExportType>(job->exportType), job->pageIndexes,
                        job->filePath)
                        : nullptr);
    }
    return m_client->start(jobs);
}

bool KVXCWOCRImpl::stop()
{
    return m_client->stop();
}
