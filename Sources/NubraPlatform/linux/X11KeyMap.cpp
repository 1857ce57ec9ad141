#include "NubraPlatform/linux/X11KeyMap.h"

#include "NubraCore/Capture/HotkeyCombo.h"

#include <X11/X.h>
#include <X11/keysym.h>

#include <array>
#include <utility>

namespace X11KeyMap {

namespace {

constexpr std::array<std::pair<quint32, quint32>, 45> keys{{
    {0, XK_a},       {1, XK_s},      {2, XK_d},      {3, XK_f},          {4, XK_h},       {5, XK_g},
    {6, XK_z},       {7, XK_x},      {8, XK_c},      {9, XK_v},          {11, XK_b},      {12, XK_q},
    {13, XK_w},      {14, XK_e},     {15, XK_r},     {16, XK_y},         {17, XK_t},      {18, XK_1},
    {19, XK_2},      {20, XK_3},     {21, XK_4},     {22, XK_6},         {23, XK_5},      {25, XK_9},
    {26, XK_7},      {28, XK_8},     {29, XK_0},     {31, XK_o},         {32, XK_u},      {34, XK_i},
    {35, XK_p},      {37, XK_l},     {38, XK_j},     {40, XK_k},         {45, XK_n},      {46, XK_m},
    {36, XK_Return}, {48, XK_Tab},   {49, XK_space}, {51, XK_BackSpace}, {53, XK_Escape}, {123, XK_Left},
    {124, XK_Right}, {125, XK_Down}, {126, XK_Up},
}};

} // namespace

std::optional<quint32> keysymFor(quint32 ansiKeyCode) {
    for (const auto& [code, keysym] : keys) {
        if (code == ansiKeyCode)
            return keysym;
    }
    return std::nullopt;
}

unsigned int x11Modifiers(quint32 carbonModifiers) {
    unsigned int mask = 0;
    if (carbonModifiers & 0x100)
        mask |= Mod4Mask;
    if (carbonModifiers & 0x200)
        mask |= ShiftMask;
    if (carbonModifiers & 0x800)
        mask |= Mod1Mask;
    if (carbonModifiers & 0x1000)
        mask |= ControlMask;
    return mask;
}

quint64 modifierFlags(unsigned int x11State) {
    quint64 flags = 0;
    if (x11State & ShiftMask)
        flags |= HotkeyCombo::shiftFlag;
    if (x11State & ControlMask)
        flags |= HotkeyCombo::controlFlag;
    if (x11State & Mod1Mask)
        flags |= HotkeyCombo::optionFlag;
    if (x11State & Mod4Mask)
        flags |= HotkeyCombo::commandFlag;
    return flags;
}

} // namespace X11KeyMap
