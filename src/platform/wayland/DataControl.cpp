#include "platform/wayland/DataControl.h"

#include <unistd.h>

#include <utility>

#include "platform/wayland/WaylandConnection.h"

namespace nulo {
namespace {

/// Programs of all ages ask for one of these.
constexpr const char* textTypes[] = {"text/plain;charset=utf-8", "text/plain", "UTF8_STRING",
                                     "STRING", "TEXT"};

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
    std::shared_ptr<const std::string> text;
    std::function<void()> onRead;
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

void DataControl::set(std::shared_ptr<const std::string> text, std::function<void()> onRead) {
    m_sources.clear();
    if (!m_device)
        return;
    offer(text, onRead, zwlr_data_control_device_v1_set_selection);
    offer(text, onRead, zwlr_data_control_device_v1_set_primary_selection);
}

void DataControl::offer(std::shared_ptr<const std::string> text,
                        const std::function<void()>& onRead,
                        void (*select)(zwlr_data_control_device_v1*,
                                       zwlr_data_control_source_v1*)) {
    Wayland<zwlr_data_control_source_v1> source(
        zwlr_data_control_manager_v1_create_data_source(m_manager.get()));
    for (const char* type : textTypes)
        zwlr_data_control_source_v1_offer(source.get(), type);
    static const zwlr_data_control_source_v1_listener listener{
        .send =
            [](void* data, zwlr_data_control_source_v1*, const char*, int descriptor) {
                const Source& asked = *static_cast<Source*>(data);
                if (asked.onRead)
                    asked.onRead();
                asked.owner.m_writers.add(descriptor, asked.text);
            },
        .cancelled =
            [](void* data, zwlr_data_control_source_v1*) {
                std::erase_if(static_cast<Source*>(data)->owner.m_sources,
                              [data](const auto& kept) { return kept.get() == data; });
            }};
    m_sources.push_back(
        std::make_unique<Source>(Source{*this, std::move(text), onRead, std::move(source)}));
    zwlr_data_control_source_v1* const offered = m_sources.back()->source.get();
    zwlr_data_control_source_v1_add_listener(offered, &listener, m_sources.back().get());
    select(m_device.get(), offered);
}

}  // namespace nulo
