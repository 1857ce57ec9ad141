#include "NubraApp/Shell/HistoryNotifier.h"

HistoryNotifier& HistoryNotifier::shared() {
    static HistoryNotifier notifier;
    return notifier;
}
