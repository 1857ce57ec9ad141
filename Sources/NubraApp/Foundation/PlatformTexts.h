#pragma once

#include "NubraCore/Vocabulary/Models.h"

#include <QString>

class QCoreApplication;

// The user-visible texts that name a place on the desktop (a settings app, the menu bar, an example
// application) or a key. Each keeps its macOS wording beside a Linux one that points at the same thing there;
// the build shows the pair of the platform it runs on, in the interface language.
enum class PlatformText {
    selectTextFirst,            // appended to the failed capture test
    diagnosisApiDisabled,       // diagnosis: the probe found accessibility off
    diagnosisToggleAdvice,      // diagnosis: the advice after it
    diagnosisCommonCause,       // diagnosis: the cause, first line
    diagnosisCommonCauseFix,    // diagnosis: the cause, second line
    openSettingsButton,         // onboarding: the button that leads to the switch
    onboardingStepOpenSettings, // onboarding: step 1
    onboardingStepFindSwitch,   // onboarding: step 2
    waitingForSwitch,           // onboarding: the line under the spinner
    guideTreelessNote,          // onboarding: applications that share their text only on request
    welcomeIconLocation,        // welcome notice: where the icon lives
    keepHistoryToggle,          // settings: the history-recording switch
    historyStaysLocal,          // settings: the note under the history controls
    aboutTagline,               // settings: the second line of the about tab
    altSelectionTrigger,        // settings: Option selection with Alt (the original's "⌥ + Selection")
    superSelectionTrigger,      // settings: Option selection with Super
};

enum class DesktopPlatform { macOS, linuxDesktop };

namespace PlatformTexts {

// The platform this build runs on.
DesktopPlatform current();

// The text for this platform in the interface language.
QString text(PlatformText id);
// The text for `platform` in the interface language.
QString text(PlatformText id, DesktopPlatform platform);

// The name of a trigger mode in the interface language; Option selection is named by the key held.
QString triggerModeName(TriggerMode mode, OptionModifier modifier);

// Loads Qt's own translations (stock dialog buttons) when the interface language is Chinese; returns
// whether a translator was installed. Call once, after the application object exists.
bool installQtTranslations(QCoreApplication& app);

} // namespace PlatformTexts
