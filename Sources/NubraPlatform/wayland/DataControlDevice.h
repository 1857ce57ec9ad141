#pragma once

#include <QByteArray>
#include <QList>
#include <QString>
#include <QStringList>

#include <functional>
#include <map>
#include <utility>

struct wl_seat;
struct zwlr_data_control_device_v1;
struct zwlr_data_control_offer_v1;
struct zwlr_data_control_source_v1;
class WaylandConnection;

// The seat's clipboard and primary selection through data-control (ext-data-control-v1 or
// wlr-data-control v2: the same requests and events under two names, so one set of listeners serves
// both). Lives on the connection's thread and is used only there.
class DataControlDevice {
public:
    enum class Selection { clipboard, primary };
    enum class Protocol { ext, wlr };

    DataControlDevice(WaylandConnection& connection, void* manager, Protocol protocol, wl_seat* seat);
    ~DataControlDevice();
    DataControlDevice(const DataControlDevice&) = delete;
    DataControlDevice& operator=(const DataControlDevice&) = delete;

    // The selections the compositor announced at binding have arrived: later ones are changes.
    void initialSelectionsReceived() { m_initialDone = true; }
    bool usable() const { return m_device != nullptr; }

    QStringList types(Selection which) const;
    qint64 changes(Selection which) const {
        return which == Selection::clipboard ? m_clipboardChanges : m_primaryChanges;
    }
    // Asks the owner of the selection to write it as `type` into `fd` (duplicated; the caller keeps
    // its own). False when there is no such selection or it does not offer that type.
    bool receive(Selection which, const QString& type, int fd);
    // Makes Nubra the owner of the clipboard, serving these formats until someone else takes it;
    // nothing clears it.
    void own(const QList<std::pair<QString, QByteArray>>& items);
    // Called for every new primary selection after the one present at binding.
    void setPrimaryListener(std::function<void(bool cleared)> listener) {
        m_primaryListener = std::move(listener);
    }

private:
    struct Offer {
        QStringList types;
    };
    struct Source {
        QList<std::pair<QString, QByteArray>> items;
    };

    static void onDataOffer(void* data, zwlr_data_control_device_v1*, zwlr_data_control_offer_v1* offer);
    static void onSelection(void* data, zwlr_data_control_device_v1*, zwlr_data_control_offer_v1* offer);
    static void onFinished(void* data, zwlr_data_control_device_v1*);
    static void onPrimarySelection(void* data, zwlr_data_control_device_v1*,
                                   zwlr_data_control_offer_v1* offer);
    static void onOfferType(void* data, zwlr_data_control_offer_v1* offer, const char* type);
    static void onSend(void* data, zwlr_data_control_source_v1* source, const char* type, int32_t fd);
    static void onCancelled(void* data, zwlr_data_control_source_v1* source);

    void replace(zwlr_data_control_offer_v1*& current, zwlr_data_control_offer_v1* next);
    zwlr_data_control_offer_v1* current(Selection which) const;

    WaylandConnection& m_connection;
    void* m_manager;
    Protocol m_protocol;
    zwlr_data_control_device_v1* m_device = nullptr;
    std::map<zwlr_data_control_offer_v1*, Offer> m_offers;
    std::map<zwlr_data_control_source_v1*, Source> m_sources;
    zwlr_data_control_offer_v1* m_clipboard = nullptr;
    zwlr_data_control_offer_v1* m_primary = nullptr;
    qint64 m_clipboardChanges = 0;
    qint64 m_primaryChanges = 0;
    bool m_initialDone = false;
    std::function<void(bool)> m_primaryListener;
};
