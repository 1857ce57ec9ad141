#include "NubraPlatform/wayland/DataControlDevice.h"

#include "NubraPlatform/wayland/WaylandConnection.h"

#include "ext-data-control-v1-client.h"
#include "wlr-data-control-unstable-v1-client.h"

#include <unistd.h>

namespace {

// An owner cannot make us hold an endless list of types.
constexpr qsizetype maxTypes = 64;
constexpr qsizetype maxTypeLength = 256;

// Both protocols number their requests and events alike; only the requests that create an object name
// the interface of what they create, so those are the ones that differ.
static_assert(EXT_DATA_CONTROL_DEVICE_V1_SET_PRIMARY_SELECTION ==
              ZWLR_DATA_CONTROL_DEVICE_V1_SET_PRIMARY_SELECTION);
static_assert(EXT_DATA_CONTROL_OFFER_V1_RECEIVE == ZWLR_DATA_CONTROL_OFFER_V1_RECEIVE);
static_assert(EXT_DATA_CONTROL_SOURCE_V1_OFFER == ZWLR_DATA_CONTROL_SOURCE_V1_OFFER);
static_assert(sizeof(ext_data_control_device_v1_listener) == sizeof(zwlr_data_control_device_v1_listener));
static_assert(sizeof(ext_data_control_source_v1_listener) == sizeof(zwlr_data_control_source_v1_listener));

} // namespace

DataControlDevice::DataControlDevice(WaylandConnection& connection, void* manager, Protocol protocol,
                                     wl_seat* seat)
    : m_connection(connection), m_manager(manager), m_protocol(protocol) {
    static const zwlr_data_control_device_v1_listener listener{onDataOffer, onSelection, onFinished,
                                                               onPrimarySelection};
    if (protocol == Protocol::ext) {
        m_device = reinterpret_cast<zwlr_data_control_device_v1*>(ext_data_control_manager_v1_get_data_device(
            static_cast<ext_data_control_manager_v1*>(manager), seat));
    } else {
        m_device = zwlr_data_control_manager_v1_get_data_device(
            static_cast<zwlr_data_control_manager_v1*>(manager), seat);
    }
    zwlr_data_control_device_v1_add_listener(m_device, &listener, this);
}

DataControlDevice::~DataControlDevice() {
    for (const auto& [offer, _] : m_offers)
        zwlr_data_control_offer_v1_destroy(offer);
    for (const auto& [source, _] : m_sources)
        zwlr_data_control_source_v1_destroy(source);
    if (m_device)
        zwlr_data_control_device_v1_destroy(m_device);
}

QStringList DataControlDevice::types(Selection which) const {
    const auto found = m_offers.find(current(which));
    return found == m_offers.end() ? QStringList() : found->second.types;
}

bool DataControlDevice::receive(Selection which, const QString& type, int fd) {
    zwlr_data_control_offer_v1* offer = current(which);
    const auto found = m_offers.find(offer);
    if (found == m_offers.end() || !found->second.types.contains(type))
        return false;
    zwlr_data_control_offer_v1_receive(offer, type.toUtf8().constData(), fd);
    return true;
}

void DataControlDevice::own(const QList<std::pair<QString, QByteArray>>& items) {
    if (!m_device)
        return;
    if (items.isEmpty()) {
        zwlr_data_control_device_v1_set_selection(m_device, nullptr);
        return;
    }
    static const zwlr_data_control_source_v1_listener listener{onSend, onCancelled};
    zwlr_data_control_source_v1* source =
        m_protocol == Protocol::ext
            ? reinterpret_cast<zwlr_data_control_source_v1*>(ext_data_control_manager_v1_create_data_source(
                  static_cast<ext_data_control_manager_v1*>(m_manager)))
            : zwlr_data_control_manager_v1_create_data_source(
                  static_cast<zwlr_data_control_manager_v1*>(m_manager));
    zwlr_data_control_source_v1_add_listener(source, &listener, this);
    for (const auto& [type, _] : items)
        zwlr_data_control_source_v1_offer(source, type.toUtf8().constData());
    m_sources[source] = Source{items};
    zwlr_data_control_device_v1_set_selection(m_device, source);
}

zwlr_data_control_offer_v1* DataControlDevice::current(Selection which) const {
    return which == Selection::clipboard ? m_clipboard : m_primary;
}

void DataControlDevice::replace(zwlr_data_control_offer_v1*& current, zwlr_data_control_offer_v1* next) {
    if (current && current != next) {
        m_offers.erase(current);
        zwlr_data_control_offer_v1_destroy(current);
    }
    current = next;
}

void DataControlDevice::onDataOffer(void* data, zwlr_data_control_device_v1*,
                                    zwlr_data_control_offer_v1* offer) {
    static const zwlr_data_control_offer_v1_listener listener{onOfferType};
    auto* self = static_cast<DataControlDevice*>(data);
    self->m_offers[offer] = Offer{};
    zwlr_data_control_offer_v1_add_listener(offer, &listener, self);
}

void DataControlDevice::onOfferType(void* data, zwlr_data_control_offer_v1* offer, const char* type) {
    auto* self = static_cast<DataControlDevice*>(data);
    const auto found = self->m_offers.find(offer);
    const QString name = QString::fromUtf8(type);
    if (found != self->m_offers.end() && found->second.types.size() < maxTypes &&
        name.size() <= maxTypeLength && !found->second.types.contains(name))
        found->second.types << name;
}

void DataControlDevice::onSelection(void* data, zwlr_data_control_device_v1*,
                                    zwlr_data_control_offer_v1* offer) {
    auto* self = static_cast<DataControlDevice*>(data);
    self->replace(self->m_clipboard, offer);
    ++self->m_clipboardChanges;
}

void DataControlDevice::onPrimarySelection(void* data, zwlr_data_control_device_v1*,
                                           zwlr_data_control_offer_v1* offer) {
    auto* self = static_cast<DataControlDevice*>(data);
    self->replace(self->m_primary, offer);
    ++self->m_primaryChanges;
    if (self->m_initialDone && self->m_primaryListener)
        self->m_primaryListener(offer == nullptr);
}

void DataControlDevice::onFinished(void* data, zwlr_data_control_device_v1*) {
    // The seat went away: nothing more can be read or owned through this device.
    auto* self = static_cast<DataControlDevice*>(data);
    self->replace(self->m_clipboard, nullptr);
    self->replace(self->m_primary, nullptr);
    zwlr_data_control_device_v1_destroy(self->m_device);
    self->m_device = nullptr;
}

void DataControlDevice::onSend(void* data, zwlr_data_control_source_v1* source, const char* type,
                               int32_t fd) {
    auto* self = static_cast<DataControlDevice*>(data);
    const auto found = self->m_sources.find(source);
    const QString name = QString::fromUtf8(type);
    if (found != self->m_sources.end()) {
        for (const auto& [itemType, bytes] : found->second.items) {
            if (itemType == name) {
                self->m_connection.serve(fd, bytes);
                return;
            }
        }
    }
    close(fd);
}

void DataControlDevice::onCancelled(void* data, zwlr_data_control_source_v1* source) {
    auto* self = static_cast<DataControlDevice*>(data);
    self->m_sources.erase(source);
    zwlr_data_control_source_v1_destroy(source);
}
