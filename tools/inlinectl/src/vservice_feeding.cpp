#include "vservice_feeding.h"

namespace inlinectl {
namespace {

using Came = FedVservice::Came;

// What the library skips, it does not try to program.
bool is_tried(const vservice_config &record)
{
    return record.vs_index < VSERVICES &&
           (record.encap == VSERVICE_ENCAP_UDP || record.encap == VSERVICE_ENCAP_UDP_LOCAL);
}

} // namespace

VserviceFeeding::VserviceFeeding(std::unique_ptr<vlc::VirtualLineCard> card,
                                 const std::filesystem::path &state_directory)
    : host_(std::move(card), state_directory)
{
    for (const std::string &left : host_.not_settled())
        report_.said.push_back("not settled: " + left);
    feeder_.emplace();
    complaints_.look(); // those of the start are no service's
}

void VserviceFeeding::add(const vservice_config &record)
{
    const bool was_there = feeder_->programmed(record.vs_index).has_value();
    FedVservice fed{.index = record.vs_index, .config = record};
    feeder_->add(record);
    fed.said = heard();
    const bool is_there = feeder_->programmed(record.vs_index).has_value();
    if (!is_tried(record))
        fed.came = Came::skipped;
    else if (!fed.said.empty() || !is_there)
        fed.came = was_there && !is_there ? Came::lost : Came::failed;
    else
        fed.came = was_there ? Came::modified : Came::programmed;
    report_.fed.push_back(std::move(fed));
}

void VserviceFeeding::remove(uint32_t index)
{
    const bool was_there = feeder_->programmed(index).has_value();
    FedVservice fed{.index = index};
    feeder_->remove(index);
    fed.said = heard();
    if (index >= VSERVICES)
        fed.came = Came::skipped;
    else if (!fed.said.empty() || feeder_->programmed(index))
        fed.came = Came::failed;
    else
        fed.came = was_there ? Came::deleted : Came::was_not_there;
    report_.fed.push_back(std::move(fed));
}

VserviceReport VserviceFeeding::finish()
{
    for (std::string &text : heard())
        report_.said.push_back(std::move(text));
    if (!host_.card().why_given_up().empty())
        report_.said.push_back(host_.card().why_given_up());
    for (uint32_t index = 0; index < VSERVICES; ++index)
        report_.programmed_now += feeder_->programmed(index) ? 1U : 0U;
    return std::move(report_);
}

// What the hardware answers late belongs to the record too.
std::vector<std::string> VserviceFeeding::heard()
{
    host_.session().let_everything_arrive();
    return complaints_.look();
}

} // namespace inlinectl
