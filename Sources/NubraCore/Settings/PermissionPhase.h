#pragma once

// Where the Accessibility permission flow stands; held with the settings, driven by the permission
// monitor.
enum class PermissionPhase { notTrusted, checking, needsRestart, active, done };
