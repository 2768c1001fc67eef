#include "host/hidsim/feature_store.h"

#include <utility>

namespace host::hidsim {

void FeatureStore::Update(const FeatureMap& reports)
{
    for (const auto& [reportId, report] : reports)
        reports_[reportId] = report;
}

void FeatureStore::Set(std::uint8_t reportId, std::vector<std::uint8_t> report)
{
    reports_[reportId] = std::move(report);
}

std::optional<std::vector<std::uint8_t>> FeatureStore::Get(std::uint8_t reportId) const
{
    const auto found = reports_.find(reportId);
    if (found == reports_.end())
        return std::nullopt;
    return found->second;
}

std::vector<std::uint8_t> FeatureStore::Answer(std::uint8_t reportId, std::size_t reportLength) const
{
    std::vector<std::uint8_t> answer;
    const auto found = reports_.find(reportId);
    if (found != reports_.end())
        answer = found->second;
    else
        answer.push_back(reportId);
    if (answer.size() < reportLength)
        answer.resize(reportLength, 0);
    return answer;
}

}  // namespace host::hidsim
