#include "ProcessFigures.h"

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

namespace kvx::test {

ProcessFigures figuresOf(std::int64_t process)
{
    ProcessFigures figures;
    figures.seconds
        = std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch())
              .count();
    const std::string folder = "/proc/" + std::to_string(process);
    std::ifstream status(folder + "/status");
    for (std::string line; std::getline(status, line);) {
        if (line.rfind("VmRSS:", 0) == 0)
            figures.memoryMiB = std::atof(line.c_str() + 6) / 1024;
        else if (line.rfind("Threads:", 0) == 0)
            figures.threads = std::atof(line.c_str() + 8);
    }
    std::error_code ignored;
    for (const auto &entry : std::filesystem::directory_iterator(folder + "/fd", ignored)) {
        static_cast<void>(entry);
        ++figures.descriptors;
    }
    return figures;
}

double memorySlope(const std::vector<ProcessFigures> &samples)
{
    const double count = static_cast<double>(samples.size());
    double seconds = 0;
    double memory = 0;
    for (const ProcessFigures &sample : samples) {
        seconds += sample.seconds / count;
        memory += sample.memoryMiB / count;
    }
    double together = 0;
    double spread = 0;
    for (const ProcessFigures &sample : samples) {
        together += (sample.seconds - seconds) * (sample.memoryMiB - memory);
        spread += (sample.seconds - seconds) * (sample.seconds - seconds);
    }
    return spread > 0 ? 60 * together / spread : 0;
}

} // namespace kvx::test
