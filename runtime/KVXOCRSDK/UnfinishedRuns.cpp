#include "UnfinishedRuns.h"

#include "OcrRun.h"

#include <KVXNetwork/KVXNetwork.h>
#include <algorithm>

namespace kvx {

namespace {

class Store {
public:
    void take(std::shared_ptr<OcrRun> run)
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_runs.erase(std::remove_if(m_runs.begin(), m_runs.end(),
                         [](const auto &old) { return old->waitForEnd(std::chrono::seconds(0)); }),
            m_runs.end());
        m_runs.push_back(std::move(run));
    }

    ~Store()
    {
        for (const auto &run : m_runs) {
            run->giveUp();
            while (!run->waitForEnd(std::chrono::milliseconds(20)))
                KVXNetwork::getInstance()->abort();
        }
    }

private:
    std::mutex m_mutex;
    std::vector<std::shared_ptr<OcrRun>> m_runs;
};

} // namespace

void UnfinishedRuns::take(std::shared_ptr<OcrRun> run)
{
    static Store store;
    store.take(std::move(run));
}

} // namespace kvx
