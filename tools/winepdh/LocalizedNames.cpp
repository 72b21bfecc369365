#include "LocalizedNames.h"

namespace varnex::winepdh
{

namespace
{

constexpr LocalizedNames english{{L"Processor", L"% Processor Time"}, {L"PhysicalDisk", L"Disk Bytes/sec"}};
constexpr LocalizedNames german{{L"Prozessor", L"Prozessorzeit (%)"},
                                {L"physikalischer Datentr\u00E4ger", L"Bytes auf Festplatte/Sek"}};
constexpr LocalizedNames spanish{{L"Procesador", L"% de tiempo de procesador"}, {L"DiscoF\u00EDsico", L"Bytes de s."}};
constexpr LocalizedNames french{{L"Processeur", L"% Temps processeur"}, {L"Disque physique", L"Octets disque/s"}};
constexpr LocalizedNames italian{{L"Processore", L"% Tempo processore"}, {L"Disco fisico", L"Byte da/a disco/sec"}};
constexpr LocalizedNames portuguese{{L"Processador", L"% tempo de processador"},
                                    {L"PhysicalDisk", L"Bytes de disco/s"}};

} // namespace

const LocalizedNames& NamesOfLanguage(LANGID wLanguage) noexcept
{
    switch (PRIMARYLANGID(wLanguage))
    {
    case LANG_GERMAN:
        return german;
    case LANG_SPANISH:
        return spanish;
    case LANG_FRENCH:
        return french;
    case LANG_ITALIAN:
        return italian;
    case LANG_PORTUGUESE:
        return portuguese;
    default:
        return english;
    }
}

const LocalizedNames& CurrentNames() noexcept
{
    return NamesOfLanguage(GetSystemDefaultLangID());
}

} // namespace varnex::winepdh
