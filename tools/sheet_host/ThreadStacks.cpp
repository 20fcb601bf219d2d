#include "tools/sheet_host/ThreadStacks.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <cxxabi.h>
#include <iterator>

#include "tools/page_reader/PageText.h"
#include "tools/sheet_host/LoaderLock.h"
#include "tools/sheet_host/ProcessThreads.h"

namespace {

constexpr int maxFrames = 64;

struct Frames {
    DWORD64 pc[maxFrames] = {};
    int count = 0;
};

struct Module {
    const BYTE* base = nullptr;
    DWORD size = 0;
    std::wstring path;
    bool symbolsRead = false;
    std::map<DWORD, std::string> symbols;  // functions by address relative to the base
};

const IMAGE_NT_HEADERS* headersOf(const BYTE* image)
{
    return reinterpret_cast<const IMAGE_NT_HEADERS*>(
        image + reinterpret_cast<const IMAGE_DOS_HEADER*>(image)->e_lfanew);
}

// The loader's list of modules, read without its lock.
std::vector<Module> loadedModules()
{
    std::vector<Module> modules;
    const PEB_LDR_DATA* loader = processEnvironmentBlock()->Ldr;
    const LIST_ENTRY* head = &loader->InMemoryOrderModuleList;
    for (const LIST_ENTRY* at = head->Flink; at != head && modules.size() < 1000; at = at->Flink) {
        const auto* entry = CONTAINING_RECORD(at, LDR_DATA_TABLE_ENTRY, InMemoryOrderLinks);
        Module module;
        module.base = static_cast<const BYTE*>(entry->DllBase);
        module.size = headersOf(module.base)->OptionalHeader.SizeOfImage;
        module.path.assign(entry->FullDllName.Buffer, entry->FullDllName.Length / sizeof(wchar_t));
        modules.push_back(std::move(module));
    }
    return modules;
}

std::string demangled(const std::string& name)
{
    int status = 0;
    char* text = abi::__cxa_demangle(name.c_str(), nullptr, nullptr, &status);
    if (status != 0 || text == nullptr) {
        return name;
    }
    std::string result(text);
    std::free(text);
    return result;
}

// The functions of the file's COFF symbol table, which mingw leaves in an
// image it doesn't strip.
std::map<DWORD, std::string> symbolsOf(const std::wstring& path)
{
    std::map<DWORD, std::string> symbols;
    HANDLE file = CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_DELETE, nullptr,
                              OPEN_EXISTING, 0, nullptr);
    if (file == INVALID_HANDLE_VALUE) {
        return symbols;
    }
    LARGE_INTEGER size{};
    std::vector<BYTE> bytes;
    DWORD read = 0;
    if (GetFileSizeEx(file, &size) && size.QuadPart > 0 && size.QuadPart < (1LL << 30)) {
        bytes.resize(static_cast<std::size_t>(size.QuadPart));
        if (!ReadFile(file, bytes.data(), static_cast<DWORD>(bytes.size()), &read, nullptr)) {
            read = 0;
        }
    }
    CloseHandle(file);
    bytes.resize(read);
    if (bytes.size() < sizeof(IMAGE_DOS_HEADER)
        || static_cast<std::size_t>(reinterpret_cast<const IMAGE_DOS_HEADER*>(bytes.data())->e_lfanew)
                + sizeof(IMAGE_NT_HEADERS)
            > bytes.size()) {
        return symbols;
    }
    const IMAGE_NT_HEADERS* nt = headersOf(bytes.data());
    const IMAGE_FILE_HEADER& header = nt->FileHeader;
    const IMAGE_SECTION_HEADER* sections = IMAGE_FIRST_SECTION(nt);
    const std::size_t table = header.PointerToSymbolTable;
    const std::size_t strings = table + std::size_t{header.NumberOfSymbols} * IMAGE_SIZEOF_SYMBOL;
    if (table == 0 || strings + sizeof(DWORD) > bytes.size()) {
        return symbols;
    }
    for (DWORD index = 0; index < header.NumberOfSymbols;) {
        const auto* symbol = reinterpret_cast<const IMAGE_SYMBOL*>(
            bytes.data() + table + std::size_t{index} * IMAGE_SIZEOF_SYMBOL);
        index += 1U + symbol->NumberOfAuxSymbols;
        if (symbol->SectionNumber <= 0 || symbol->SectionNumber > header.NumberOfSections
            || !ISFCN(symbol->Type)) {
            continue;
        }
        const IMAGE_SECTION_HEADER& section = sections[symbol->SectionNumber - 1];
        std::string name;
        if (symbol->N.Name.Short != 0) {
            const auto* text = reinterpret_cast<const char*>(symbol->N.ShortName);
            name.assign(text, strnlen(text, sizeof symbol->N.ShortName));
        } else if (strings + symbol->N.Name.Long < bytes.size()) {
            const auto* text = reinterpret_cast<const char*>(bytes.data() + strings + symbol->N.Name.Long);
            name.assign(text, strnlen(text, bytes.size() - strings - symbol->N.Name.Long));
        }
        symbols[section.VirtualAddress + symbol->Value] = name;
    }
    return symbols;
}

// The nearest export at or below `offset`, with the distance.
std::string nearestExport(const Module& module, DWORD offset)
{
    const IMAGE_DATA_DIRECTORY& directory
        = headersOf(module.base)->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_EXPORT];
    if (directory.VirtualAddress == 0) {
        return {};
    }
    const auto* exports
        = reinterpret_cast<const IMAGE_EXPORT_DIRECTORY*>(module.base + directory.VirtualAddress);
    const auto* names = reinterpret_cast<const DWORD*>(module.base + exports->AddressOfNames);
    const auto* ordinals = reinterpret_cast<const WORD*>(module.base + exports->AddressOfNameOrdinals);
    const auto* functions = reinterpret_cast<const DWORD*>(module.base + exports->AddressOfFunctions);
    const char* best = nullptr;
    DWORD bestAt = 0;
    for (DWORD index = 0; index < exports->NumberOfNames; ++index) {
        const DWORD at = functions[ordinals[index]];
        const bool forwarded
            = at >= directory.VirtualAddress && at < directory.VirtualAddress + directory.Size;
        if (!forwarded && at <= offset && at >= bestAt) {
            best = reinterpret_cast<const char*>(module.base + names[index]);
            bestAt = at;
        }
    }
    char distance[24] = {};
    std::snprintf(distance, sizeof distance, "+%#lx", static_cast<unsigned long>(offset - bestAt));
    return best != nullptr ? best + std::string(distance) : std::string();
}

std::string frameText(std::vector<Module>& modules, DWORD64 pc, bool returnAddress)
{
    // A return address may be past its function's end: named by the call before it.
    const DWORD64 looked = returnAddress ? pc - 1 : pc;
    char text[64] = {};
    for (Module& module : modules) {
        const auto base = reinterpret_cast<DWORD64>(module.base);
        if (looked < base || looked >= base + module.size) {
            continue;
        }
        const auto offset = static_cast<DWORD>(pc - base);
        std::snprintf(text, sizeof text, "+%#lx ", static_cast<unsigned long>(offset));
        const std::wstring file = module.path.substr(module.path.find_last_of(L"\\/") + 1);
        if (!module.symbolsRead) {
            module.symbols = symbolsOf(module.path);
            module.symbolsRead = true;
        }
        const auto after = module.symbols.upper_bound(static_cast<DWORD>(looked - base));
        if (after != module.symbols.begin()) {
            const auto found = std::prev(after);
            char distance[24] = {};
            std::snprintf(distance, sizeof distance, "+%#lx",
                          static_cast<unsigned long>(offset - found->first));
            return narrow(file) + text + demangled(found->second) + distance;
        }
        return narrow(file) + text + nearestExport(module, static_cast<DWORD>(looked - base));
    }
    std::snprintf(text, sizeof text, "%#llx", static_cast<unsigned long long>(pc));
    return text;
}

// The thread's frames from its context; no allocation (it is suspended).
void unwind(HANDLE thread, Frames& frames)
{
    CONTEXT context{};
    context.ContextFlags = CONTEXT_FULL;
    if (!GetThreadContext(thread, &context)) {
        return;
    }
    while (frames.count < maxFrames && context.Rip != 0) {
        frames.pc[frames.count++] = context.Rip;
        const DWORD64 stack = context.Rsp;
        DWORD64 imageBase = 0;
        PRUNTIME_FUNCTION function = RtlLookupFunctionEntry(context.Rip, &imageBase, nullptr);
        if (function == nullptr) {
            // A leaf function: the return address is on top of the stack.
            context.Rip = *reinterpret_cast<const DWORD64*>(stack);
            context.Rsp += sizeof(DWORD64);
        } else {
            PVOID handlerData = nullptr;
            DWORD64 establisher = 0;
            RtlVirtualUnwind(UNW_FLAG_NHANDLER, imageBase, context.Rip, function, &context, &handlerData,
                             &establisher, nullptr);
        }
        if (context.Rsp <= stack) {
            break;  // no progress: the unwind tables don't cover this frame
        }
    }
}

}  // namespace

std::vector<std::string> threadStacks(const std::map<DWORD, std::string>& names)
{
    std::vector<std::string> lines;
    std::vector<Module> modules = loadedModules();
    const std::vector<DWORD> threads = processThreads();
    if (threads.empty()) {
        lines.push_back("no thread list, code " + std::to_string(GetLastError()));
        return lines;
    }
    for (const DWORD id : threads) {
        if (id == GetCurrentThreadId()) {
            continue;
        }
        char title[48] = {};
        std::snprintf(title, sizeof title, "thread %#lx", static_cast<unsigned long>(id));
        const auto name = names.find(id);
        lines.push_back(title + (name != names.end() ? " (" + name->second + ")" : std::string()) + ":");
        HANDLE thread
            = OpenThread(THREAD_SUSPEND_RESUME | THREAD_GET_CONTEXT | THREAD_QUERY_INFORMATION, FALSE, id);
        if (thread == nullptr) {
            lines.push_back("  ended or out of reach, code " + std::to_string(GetLastError()));
            continue;
        }
        Frames frames;
        if (SuspendThread(thread) != static_cast<DWORD>(-1)) {
            unwind(thread, frames);
            ResumeThread(thread);
        }
        CloseHandle(thread);
        for (int index = 0; index < frames.count; ++index) {
            lines.push_back("  " + frameText(modules, frames.pc[index], index > 0));
        }
    }
    return lines;
}
