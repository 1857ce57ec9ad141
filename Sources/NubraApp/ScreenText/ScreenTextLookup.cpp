#include "NubraApp/ScreenText/ScreenTextLookup.h"

#include "NubraApp/Foundation/AppState.h"
#include "NubraApp/Overlay/OverlayController.h"
#include "NubraCore/Lookup/SelectionLimit.h"
#include "NubraCore/Support/DebugLog.h"
#include "NubraCore/Vocabulary/L10n.h"
#include "NubraPlatform/Clock.h"
#include "NubraPlatform/FrontApplications.h"
#include "NubraPlatform/ScreenGeometry.h"
#include "NubraPlatform/TaskRunner.h"

#include <QPointer>

namespace {

// The last `count` user-perceived characters of `text`.
QString suffix(const QString& text, int count) {
    const int total = SelectionLimit::characterCount(text);
    if (total <= count)
        return text;
    return text.mid(SelectionLimit::prefix(text, total - count).size());
}

// The recognizer's hint: the language the explanation will be written in.
QString outputLanguage(const QString& setting) {
    if (setting == u"zh" || setting == u"en")
        return setting;
    return L10n::isZh() ? QStringLiteral("zh") : QStringLiteral("en");
}

} // namespace

ScreenTextLookup::ScreenTextLookup(const Desktop& desktop, TextRecognizer& recognizer, AreaPicking& picker,
                                   OverlayController& card, AppState& state, QObject* parent)
    : QObject(parent), m_desktop(desktop), m_recognizer(recognizer), m_picker(picker), m_card(card),
      m_state(state) {}

QString ScreenTextLookup::nothingFoundText() {
    return L10n::t(QStringLiteral("No text found in that area."), QStringLiteral("该区域中没有找到文字。"));
}

QString ScreenTextLookup::unavailableTitle() {
    return L10n::t(QStringLiteral("Text on screen cannot be read"), QStringLiteral("无法读取屏幕上的文字"));
}

QRect ScreenTextLookup::band(const QRect& area, const QSize& picture) {
    const int margin = area.height() * contextLines;
    return QRect(0, area.top() - margin, picture.width(), area.height() + 2 * margin) &
           QRect(QPoint(0, 0), picture);
}

SelectionSnapshot ScreenTextLookup::snapshotOf(const ScreenText& text, const QRectF& bounds,
                                               int contextRadius) {
    // Over the limit it goes through whole, for the card to refuse with the message a selection gets.
    return {text.selected.trimmed(), suffix(text.before, contextRadius),
            SelectionLimit::prefix(text.after, contextRadius), QString(), bounds};
}

void ScreenTextLookup::start() {
    if (isBusy())
        return;
    if (!m_recognizer.isAvailable()) {
        emit unavailable(m_recognizer.unavailableReason());
        return;
    }
    m_phase = Phase::picturing;
    m_card.close();
    QPointer<ScreenTextLookup> self(this);
    m_desktop.clock.schedule(settleMs, [self] {
        if (self)
            self->m_desktop.screenPicture.take(
                self, [self](const ScreenPicture::Result& result) { self->pictureTaken(result); });
    });
}

void ScreenTextLookup::pictureTaken(const ScreenPicture::Result& result) {
    if (result.shots.empty()) {
        m_phase = Phase::idle;
        // An empty failure is the user declining the desktop's dialog: nothing to say.
        if (!result.failure.isEmpty())
            emit unavailable(result.failure);
        return;
    }
    m_phase = Phase::picking;
    // The language data loads while the user marks the area (seconds for Chinese at the first read).
    TextRecognizer* recognizer = &m_recognizer;
    m_desktop.tasks.runInBackground([recognizer, language = outputLanguage(m_state.settings().outputLang())] {
        recognizer->warmUp(language);
    });
    QPointer<ScreenTextLookup> self(this);
    const std::vector<ScreenShot> shots = result.shots;
    m_picker.pick(shots, [self, shots](const std::optional<PickedArea>& area) {
        if (self && area && area->shot < shots.size())
            self->areaPicked(shots[area->shot], *area);
        else if (self)
            self->m_phase = Phase::idle;
    });
}

void ScreenTextLookup::areaPicked(const ScreenShot& shot, const PickedArea& area) {
    m_phase = Phase::reading;
    const QRectF bounds = m_desktop.screen.screens().logicalToGlobal(area.onScreen);
    m_card.showReading(bounds);

    const QRect band = ScreenTextLookup::band(area.pixels, shot.image.size());
    const QImage picture = shot.image.copy(band);
    const QRect inBand = area.pixels.translated(-band.topLeft());
    const QString language = outputLanguage(m_state.settings().outputLang());
    TextRecognizer* recognizer = &m_recognizer;
    TaskRunner* tasks = &m_desktop.tasks;
    QPointer<ScreenTextLookup> self(this);
    nbDebug(QStringLiteral("ocr: reading %1x%2 in a %3x%4 band")
                .arg(inBand.width())
                .arg(inBand.height())
                .arg(band.width())
                .arg(band.height()));
    m_desktop.tasks.runInBackground([recognizer, tasks, self, picture, inBand, language, bounds] {
        std::optional<ScreenText> text = recognizer->read(picture, inBand, language);
        tasks->runOnMain([self, text = std::move(text), bounds] {
            if (self)
                self->textRead(text, bounds);
        });
    });
}

void ScreenTextLookup::textRead(const std::optional<ScreenText>& text, const QRectF& bounds) {
    m_phase = Phase::idle;
    // The user closed the card while it was being read: they no longer want it.
    if (!m_card.isVisible())
        return;
    // The recognizer could not be loaded at the first read: say why rather than that nothing is there.
    if (!text && !m_recognizer.isAvailable()) {
        m_card.showMessage(m_recognizer.unavailableReason());
        return;
    }
    if (!text || text->selected.trimmed().isEmpty()) {
        nbDebug(QStringLiteral("ocr: no text found"));
        m_card.showMessage(nothingFoundText());
        return;
    }
    SelectionSnapshot snapshot = snapshotOf(*text, bounds, m_state.settings().contextRadius());
    if (const std::optional<FrontApp> front = m_desktop.frontApplications.frontmost())
        snapshot.sourceApp = front->name;
    m_card.show(snapshot);
    m_card.request(m_state);
}
