// A small Qt text window for the desktop capture tests: a text area with known prose and a password
// field. On start it prints, as JSON lines, where chosen words are on screen (top-left-origin global
// coordinates), so the test can click them wherever the window manager put the window.

#include <QApplication>
#include <QClipboard>
#include <QJsonDocument>
#include <QJsonObject>
#include <QKeyEvent>
#include <QLineEdit>
#include <QPlainTextEdit>
#include <QSocketNotifier>
#include <QTimer>
#include <QVBoxLayout>
#include <QWidget>

#include <cstdio>
#include <iostream>
#include <string>
#include <unistd.h>

namespace {

const QString prose = QStringLiteral("Alpha bravo charlie delta echo foxtrot golf hotel india juliet.\n"
                                     "Kilo lima mike november oscar papa quebec romeo sierra tango.");

void printWord(QPlainTextEdit& edit, const QString& word) {
    const int start = int(prose.indexOf(word));
    QTextCursor cursor(edit.document());
    cursor.setPosition(start);
    const QRect first = edit.cursorRect(cursor);
    cursor.setPosition(start + int(word.size()));
    const QRect last = edit.cursorRect(cursor);
    const QPoint left = edit.viewport()->mapToGlobal(first.center());
    const QPoint right = edit.viewport()->mapToGlobal(last.center());
    const QJsonObject line{{QStringLiteral("word"), word},
                           {QStringLiteral("startX"), left.x()},
                           {QStringLiteral("endX"), right.x()},
                           {QStringLiteral("y"), left.y()},
                           {QStringLiteral("height"), first.height()}};
    std::puts(QJsonDocument(line).toJson(QJsonDocument::Compact).constData());
}

void press(QWidget& widget, Qt::Key key, Qt::KeyboardModifiers modifiers) {
    QKeyEvent down(QEvent::KeyPress, key, modifiers);
    QKeyEvent up(QEvent::KeyRelease, key, modifiers);
    QApplication::sendEvent(&widget, &down);
    QApplication::sendEvent(&widget, &up);
}

// Selects `word` as the keyboard does, with Shift+Right from its start, so that the editor publishes
// the selection (PRIMARY) as it would for a user. An empty word moves the caret, ending the selection.
void selectWord(QPlainTextEdit& edit, const QString& word) {
    QTextCursor cursor = edit.textCursor();
    cursor.setPosition(word.isEmpty() ? 0 : int(prose.indexOf(word)));
    edit.setTextCursor(cursor);
    if (word.isEmpty())
        press(edit, Qt::Key_Right, Qt::NoModifier);
    for (qsizetype i = 0; i < word.size(); ++i)
        press(edit, Qt::Key_Right, Qt::ShiftModifier);
}

} // namespace

int main(int argc, char** argv) {
    QApplication app(argc, argv);
    QWidget window;
    // A second window of a test takes its title from the first argument. With "--no-primary" after it,
    // the window gives up PRIMARY as soon as it takes it, like applications that never publish their
    // selection there: only a copy can get the selected text then.
    const QStringList arguments = app.arguments();
    window.setWindowTitle(arguments.size() > 1 ? arguments[1] : QStringLiteral("Nubra Test Text"));
    if (arguments.contains(QStringLiteral("--no-primary"))) {
        QClipboard* clipboard = QGuiApplication::clipboard();
        QObject::connect(clipboard, &QClipboard::changed, &window, [clipboard](QClipboard::Mode mode) {
            if (mode == QClipboard::Selection && clipboard->ownsSelection())
                clipboard->clear(QClipboard::Selection);
        });
    }
    auto* layout = new QVBoxLayout(&window);
    auto* edit = new QPlainTextEdit(prose);
    QFont font = edit->font();
    font.setPointSize(16);
    edit->setFont(font);
    auto* password = new QLineEdit(QStringLiteral("hunter2 secret"));
    password->setEchoMode(QLineEdit::Password);
    password->setObjectName(QStringLiteral("password"));
    layout->addWidget(edit);
    layout->addWidget(password);
    // With "--select-from-stdin", each line on stdin names a word for the window to select: for desktops
    // where a test cannot type.
    if (arguments.contains(QStringLiteral("--select-from-stdin"))) {
        auto* input = new QSocketNotifier(STDIN_FILENO, QSocketNotifier::Read, &window);
        QObject::connect(input, &QSocketNotifier::activated, &window, [input, edit] {
            std::string line;
            if (std::getline(std::cin, line))
                selectWord(*edit, QString::fromStdString(line));
            else
                input->setEnabled(false);
        });
    }
    window.resize(900, 300);
    window.move(40, 40);
    window.show();
    edit->setFocus();

    QTimer::singleShot(1500, &window, [edit, password]() {
        for (const QString& word : {QStringLiteral("charlie"), QStringLiteral("delta"),
                                    QStringLiteral("foxtrot"), QStringLiteral("mike")})
            printWord(*edit, word);
        const QPoint field = password->mapToGlobal(password->rect().center());
        std::printf("{\"word\":\"password\",\"startX\":%d,\"endX\":%d,\"y\":%d,\"height\":%d}\n", field.x(),
                    field.x(), field.y(), password->height());
        std::fflush(stdout);
    });
    return app.exec();
}
