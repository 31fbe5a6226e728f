#include "platform/wayland/DataControl.h"

#include <unistd.h>

#include <string_view>
#include <utility>

#include "platform/wayland/WaylandConnection.h"

namespace nulo {
namespace {

/// Programs of all ages ask for one of these.
constexpr const char* textTypes[] = {"text/plain;charset=utf-8", "text/plain", "UTF8_STRING",
                                     "STRING", "TEXT"};

constexpr const char* secrecyType = "x-kde-passwordManagerHint";

/// The protocol's later name. Its requests and events are the older one's second version, number
/// for number, so that the older one's code speaks both.
const wl_interface& standardManager() {
    static const wl_interface interface = [] {
        wl_interface copy = zwlr_data_control_manager_v1_interface;
        copy.name = "ext_data_control_manager_v1";
        copy.version = 1;
        return copy;
    }();
    return interface;
}

DataControl& self(void* data) {
    return *static_cast<DataControl*>(data);
}

/// What others copy is not read. Not before it is named as the selection, which follows its
/// announcement: the library would keep a destroyed object that a waiting event names.
void drop(void*, zwlr_data_control_device_v1*, zwlr_data_control_offer_v1* offer) {
    if (offer)
        zwlr_data_control_offer_v1_destroy(offer);
}

}  // namespace

struct DataControl::Source {
    DataControl& owner;
    std::shared_ptr<const OfferedText> offered;
    Wayland<zwlr_data_control_source_v1> source;
};

DataControl::DataControl(WaylandConnection& connection)
    : m_manager(connection.bind<zwlr_data_control_manager_v1>(standardManager(), 1, 1)) {
    if (!m_manager)  // the first version had no primary selection
        m_manager = connection.bind<zwlr_data_control_manager_v1>(
            zwlr_data_control_manager_v1_interface, 2, 2);
    if (!m_manager || !connection.seat())
        return;
    m_device.reset(
        zwlr_data_control_manager_v1_get_data_device(m_manager.get(), connection.seat()));
    static const zwlr_data_control_device_v1_listener listener{
        .data_offer = ignored<void*, zwlr_data_control_device_v1*, zwlr_data_control_offer_v1*>,
        .selection = drop,
        .finished =
            [](void* data, zwlr_data_control_device_v1*) {
                self(data).m_sources.clear();
                self(data).m_device.reset();
            },
        .primary_selection = drop};
    zwlr_data_control_device_v1_add_listener(m_device.get(), &listener, this);
}

DataControl::~DataControl() = default;

bool DataControl::isOffered(const WaylandConnection& connection) {
    const auto& offers = connection.offers();
    const auto older = offers.find(zwlr_data_control_manager_v1_interface.name);
    return offers.count(standardManager().name) ||
           (older != offers.end() && older->second.version >= 2);
}

void DataControl::set(std::shared_ptr<const OfferedText> offered) {
    m_sources.clear();
    if (!m_device)
        return;
    offer(offered, zwlr_data_control_device_v1_set_selection);
    offer(offered, zwlr_data_control_device_v1_set_primary_selection);
}

void DataControl::offer(std::shared_ptr<const OfferedText> offered,
                        void (*select)(zwlr_data_control_device_v1*,
                                       zwlr_data_control_source_v1*)) {
    Wayland<zwlr_data_control_source_v1> source(
        zwlr_data_control_manager_v1_create_data_source(m_manager.get()));
    for (const char* type : textTypes)
        zwlr_data_control_source_v1_offer(source.get(), type);
    if (offered->isPrivate)
        zwlr_data_control_source_v1_offer(source.get(), secrecyType);
    static const zwlr_data_control_source_v1_listener listener{
        .send =
            [](void* data, zwlr_data_control_source_v1*, const char* type, int descriptor) {
                const Source& asked = *static_cast<Source*>(data);
                PipeWriters& writers = asked.owner.m_writers;
                if (std::string_view(type) == secrecyType) {
                    static const auto secret = std::make_shared<const std::string>("secret");
                    return writers.add(descriptor, secret);
                }
                if (asked.offered->onRead)
                    asked.offered->onRead();
                writers.add(descriptor, {asked.offered, &asked.offered->text});
            },
        .cancelled =
            [](void* data, zwlr_data_control_source_v1*) {
                const Source& lost = *static_cast<Source*>(data);
                if (lost.offered->onReplaced)
                    lost.offered->onReplaced();
                std::erase_if(lost.owner.m_sources,
                              [&](const auto& kept) { return kept.get() == &lost; });
            }};
    m_sources.push_back(
        std::make_unique<Source>(Source{*this, std::move(offered), std::move(source)}));
    zwlr_data_control_source_v1* const made = m_sources.back()->source.get();
    zwlr_data_control_source_v1_add_listener(made, &listener, m_sources.back().get());
    select(m_device.get(), made);
}

}  // namespace nulo
