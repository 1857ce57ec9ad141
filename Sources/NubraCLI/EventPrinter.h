#pragma once

#include "NubraCore/Service/SSEEvent.h"

#include <QByteArray>
#include <QString>

// Writes a lookup's events to standard output as they arrive.
class EventPrinter {
public:
    virtual ~EventPrinter() = default;
    virtual void print(const SSEEvent& event) = 0;
    // The stream is over, however it ended.
    virtual void end() {}
};

// One compact JSON object per event and line: the members as on the wire plus "event".
class JsonEventPrinter final : public EventPrinter {
public:
    void print(const SSEEvent& event) override;
    static QByteArray line(const SSEEvent& event);
};

// The explanation as text, streamed: the gloss first, then the contextual meaning under a heading.
// When the final result differs from what was streamed, it is printed again whole.
class TextEventPrinter final : public EventPrinter {
public:
    void print(const SSEEvent& event) override;
    void end() override;

private:
    void write(const QString& text);

    QString m_gloss;
    QString m_meaning;
    bool m_meaningStarted = false;
    bool m_outOfOrder = false; // a gloss piece came after the meaning had begun
    bool m_lineOpen = false;   // text has been written without a final line feed
};
