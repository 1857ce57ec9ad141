#include "NubraApp/Shell/TerminationSignals.h"

#include <QSocketNotifier>

#include <csignal>
#include <sys/socket.h>
#include <unistd.h>

namespace {

int pipeEnds[2] = {-1, -1};

void onSignal(int number) {
    const char byte = char(number);
    [[maybe_unused]] const ssize_t written = ::write(pipeEnds[0], &byte, 1);
}

constexpr int handledSignals[] = {SIGTERM, SIGINT, SIGHUP};

} // namespace

TerminationSignals::TerminationSignals(QObject* parent) : QObject(parent) {
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, pipeEnds) != 0)
        return;
    m_notifier = new QSocketNotifier(pipeEnds[1], QSocketNotifier::Read, this);
    connect(m_notifier, &QSocketNotifier::activated, this, [this]() {
        char byte = 0;
        if (::read(pipeEnds[1], &byte, 1) == 1)
            emit received(int(byte));
    });
    struct sigaction action = {};
    action.sa_handler = onSignal;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    for (const int number : handledSignals)
        ::sigaction(number, &action, nullptr);
}

TerminationSignals::~TerminationSignals() {
    for (const int number : handledSignals)
        ::signal(number, SIG_DFL);
    delete m_notifier;
    m_notifier = nullptr;
    for (int& end : pipeEnds) {
        if (end >= 0)
            ::close(end);
        end = -1;
    }
}
