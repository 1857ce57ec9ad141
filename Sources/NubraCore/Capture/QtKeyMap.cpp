#include "NubraCore/Capture/QtKeyMap.h"

#include "NubraCore/Capture/HotkeyCombo.h"

#include <array>
#include <utility>

namespace QtKeyMap {

namespace {

constexpr std::array<std::pair<int, std::uint64_t>, 46> keys{{
    {Qt::Key_A, 0},          {Qt::Key_S, 1},       {Qt::Key_D, 2},        {Qt::Key_F, 3},
    {Qt::Key_H, 4},          {Qt::Key_G, 5},       {Qt::Key_Z, 6},        {Qt::Key_X, 7},
    {Qt::Key_C, 8},          {Qt::Key_V, 9},       {Qt::Key_B, 11},       {Qt::Key_Q, 12},
    {Qt::Key_W, 13},         {Qt::Key_E, 14},      {Qt::Key_R, 15},       {Qt::Key_Y, 16},
    {Qt::Key_T, 17},         {Qt::Key_1, 18},      {Qt::Key_2, 19},       {Qt::Key_3, 20},
    {Qt::Key_4, 21},         {Qt::Key_6, 22},      {Qt::Key_5, 23},       {Qt::Key_9, 25},
    {Qt::Key_7, 26},         {Qt::Key_8, 28},      {Qt::Key_0, 29},       {Qt::Key_O, 31},
    {Qt::Key_U, 32},         {Qt::Key_I, 34},      {Qt::Key_P, 35},       {Qt::Key_L, 37},
    {Qt::Key_J, 38},         {Qt::Key_K, 40},      {Qt::Key_N, 45},       {Qt::Key_M, 46},
    {Qt::Key_Return, 36},    {Qt::Key_Tab, 48},    {Qt::Key_Backtab, 48}, {Qt::Key_Space, 49},
    {Qt::Key_Backspace, 51}, {Qt::Key_Escape, 53}, {Qt::Key_Left, 123},   {Qt::Key_Right, 124},
    {Qt::Key_Down, 125},     {Qt::Key_Up, 126},
}};

// What Shift makes of the digit keys on a US layout.
constexpr std::array<std::pair<int, std::uint64_t>, 10> shiftedDigits{{
    {Qt::Key_Exclam, 18},
    {Qt::Key_At, 19},
    {Qt::Key_NumberSign, 20},
    {Qt::Key_Dollar, 21},
    {Qt::Key_Percent, 23},
    {Qt::Key_AsciiCircum, 22},
    {Qt::Key_Ampersand, 26},
    {Qt::Key_Asterisk, 28},
    {Qt::Key_ParenLeft, 25},
    {Qt::Key_ParenRight, 29},
}};

} // namespace

std::optional<std::uint64_t> ansiKeyCode(int qtKey, Qt::KeyboardModifiers modifiers) {
    for (const auto& [key, code] : keys) {
        if (key == qtKey)
            return code;
    }
    if (modifiers & Qt::ShiftModifier) {
        for (const auto& [key, code] : shiftedDigits) {
            if (key == qtKey)
                return code;
        }
    }
    return std::nullopt;
}

std::uint64_t modifierFlags(Qt::KeyboardModifiers modifiers) {
    std::uint64_t flags = 0;
    if (modifiers & Qt::ShiftModifier)
        flags |= HotkeyCombo::shiftFlag;
    if (modifiers & Qt::ControlModifier)
        flags |= HotkeyCombo::controlFlag;
    if (modifiers & Qt::AltModifier)
        flags |= HotkeyCombo::optionFlag;
    if (modifiers & Qt::MetaModifier)
        flags |= HotkeyCombo::commandFlag;
    if (modifiers & Qt::KeypadModifier)
        flags |= keypadFlag;
    if (modifiers & Qt::GroupSwitchModifier)
        flags |= groupSwitchFlag;
    return flags;
}

} // namespace QtKeyMap
