// The frames of the stack on MIPS, for C libraries without backtrace.
//
// C code for MIPS carries no unwind tables and keeps no frame pointer, so a frame is read from the
// code itself, as the kernel does (arch/mips/kernel/process.c): the function's first instructions
// take room on the stack and save the return address there. Compact code (MIPS16e) has odd
// addresses and an instruction of its own for that.
#include "foundation/backtrace.h"

#include <csignal>
#include <cstdint>
#include <cstring>

#include <dlfcn.h>
#include <ucontext.h>

namespace {

// Where a signal handler returns to: li v0, __NR_rt_sigreturn; syscall. At its stack pointer lie
// 4 words of arguments and 2 of padding, then the siginfo and the interrupted context
// (arch/mips/kernel/signal.c, struct rt_sigframe).
constexpr uint32_t kSignalReturn[] = {0x24021061, 0x0000000c};
constexpr uintptr_t kContext = 24 + sizeof(siginfo_t);
static_assert(sizeof(siginfo_t) == 128);

// A function that is about to execute `pc`, with its stack at `sp`. `ra` is that register in the
// function that a signal interrupted, elsewhere 0.
struct Position {
    uintptr_t pc;
    uintptr_t sp;
    uintptr_t ra;
};

struct Prologue {
    uintptr_t room;         // bytes of stack that were taken
    uintptr_t saved_return; // where the return address is kept, 0: nowhere yet
};

template <typename Unit>
Unit unit_at(uintptr_t address) {
    return *reinterpret_cast<const Unit *>(address);
}

uintptr_t sign_extended(uint32_t low_half) {
    return static_cast<uintptr_t>(static_cast<int16_t>(low_half & 0xffff));
}

// Whether an instruction is this one but for its low bits. A shift is shorter than a mask.
bool matches(uint32_t instruction, uint32_t pattern, int low_bits) {
    return instruction >> low_bits == pattern >> low_bits;
}

// Both readers go backwards to the function's beginning, never before `first`. A function without a
// prologue makes no calls, so only the interrupted one can stand right behind the end of another.

Prologue find_prologue(const Position &at, uintptr_t first) {
    Prologue found = {0, 0};
    for (uintptr_t pc = at.pc; pc > first;) {
        pc -= 4;
        auto instruction = unit_at<uint32_t>(pc);
        if (matches(instruction, 0xafbf0000, 16)) { // sw ra, N(sp)
            found.saved_return = at.sp + sign_extended(instruction);
        } else if (matches(instruction, 0x27bd8000, 15)) { // addiu sp, sp, -N
            found.room = 0 - sign_extended(instruction);
            break;
        } else if (instruction == 0x03e00008 && at.ra != 0) { // jr ra
            break;
        }
    }
    return found;
}

// The prefix of an instruction of two halves, 0 for one of a single half.
uint32_t extension_of(uintptr_t pc) {
    uint32_t before = unit_at<uint16_t>(pc - 2);
    return matches(before, 0xf000, 11) ? before : 0;
}

Prologue find_compact_prologue(const Position &at, uintptr_t first) {
    Prologue found = {0, 0};
    for (uintptr_t pc = at.pc & ~uintptr_t{1}; pc > first;) {
        pc -= 2;
        uint32_t instruction = unit_at<uint16_t>(pc);
        uint32_t extension = extension_of(pc);
        if (matches(instruction, 0x6480, 7)) { // save N, with or without ra, which lies on top
            uint32_t size = (extension & 0xf0) | (instruction & 0xf);
            found.room += size == 0 && extension == 0 ? 128 : size * 8;
            found.saved_return = (instruction & 0x40) != 0 ? at.sp + found.room - 4 : 0;
            break;
        }
        if (matches(instruction, 0x6300, 8) && (extension & 0x10) != 0) {
            uint32_t low = (extension & 0x1f) << 11 | (extension & 0x7e0) | (instruction & 0x1f);
            found.room -= sign_extended(low); // addiu sp, -N: the rest of a large frame
        } else if ((instruction == 0xe820 || instruction == 0xe8a0) && at.ra != 0) { // jr ra
            break;
        }
    }
    return found;
}

bool in_signal_return(uintptr_t pc) {
    return std::memcmp(reinterpret_cast<const void *>(pc), kSignalReturn, sizeof kSignalReturn) ==
           0;
}

Position interrupted(uintptr_t sp) {
    const mcontext_t &saved = reinterpret_cast<const ucontext_t *>(sp + kContext)->uc_mcontext;
    return {static_cast<uintptr_t>(saved.pc), static_cast<uintptr_t>(saved.gregs[29]),
            static_cast<uintptr_t>(saved.gregs[31])};
}

// False where the stack ends or cannot be followed.
bool step_to_caller(Position &at) {
    bool compact = (at.pc & 1) != 0;
    if (at.pc == 0 || (!compact && at.pc % 4 != 0) || at.sp % 4 != 0) {
        return false;
    }
    Dl_info place = {};
    ::dladdr(reinterpret_cast<const void *>(at.pc), &place);
    if (in_signal_return(at.pc)) { // in the kernel's own page, which dladdr may know or not
        at = interrupted(at.sp);
        return true;
    }
    const void *symbol = place.dli_saddr != nullptr ? place.dli_saddr : place.dli_fbase;
    if (symbol == nullptr) { // nowhere to stop
        return false;
    }
    uintptr_t first = reinterpret_cast<uintptr_t>(symbol) & ~uintptr_t{1};
    Prologue prologue = compact ? find_compact_prologue(at, first) : find_prologue(at, first);
    uintptr_t caller =
        prologue.saved_return != 0 ? unit_at<uintptr_t>(prologue.saved_return) : at.ra;
    bool moved = caller != at.pc || prologue.room != 0;
    at = {caller, at.sp + prologue.room, 0};
    return moved && caller != 0;
}

} // namespace

[[gnu::noinline]] int backtrace(void **frames, int limit) {
    Position at = {reinterpret_cast<uintptr_t>(__builtin_return_address(0)),
                   reinterpret_cast<uintptr_t>(__builtin_dwarf_cfa()), 0};
    int count = 0;
    while (count < limit) {
        frames[count++] = reinterpret_cast<void *>(at.pc);
        if (!step_to_caller(at)) {
            break;
        }
    }
    return count;
}
