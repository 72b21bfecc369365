#include "sampling/CounterNames.h"

#include "common/BoundedText.h"
#include "diag/SPLogger.h"

namespace varnex
{

namespace
{

constexpr DWORD SCRATCH_CHARS = 1024;
constexpr UINT FIRST_ROLE = IDS_PROCESSOR_OBJECT;
constexpr UINT ROLES = IDS_DISK_BYTES_PER_SEC - IDS_PROCESSOR_OBJECT + 1;

struct LanguageNames
{
    const char* apszName[ROLES];
};

// The names are matched with the system's own counters as they stand; what looks irregular is meant. The marker of the
// aggregate instance has no underscore, since it is looked for inside names. Octal escapes are code page 1252.
constexpr LanguageNames ENGLISH = {{
    "Processor",
    "Total",
    "% Processor Time",
    "Network Interface",
    "Loopback",
    "Bytes Total/sec",
    "Current Bandwidth",
    "PhysicalDisk",
    "Disk Bytes/sec",
}};

constexpr LanguageNames GERMAN = {{
    "Prozessor",
    "Total",
    "Prozessorzeit (%)",
    "Netzwerkschnittstelle",
    "Loopback",
    "Bytes gesendet/s", // not a word for a total
    "Aktuelle Bandbreite",
    "physikalischer Datentr\344ger",
    "Bytes auf Festplatte/Sek",
}};

constexpr LanguageNames SPANISH = {{
    "Procesador",
    "Total",
    "% de tiempo de procesador",
    "Interfaz de red",
    "loopback", // lower case in this language only
    "Total de bytes/s",
    "Ancho de banda actual",
    "DiscoF\355sico",
    "Bytes de s.",
}};

constexpr LanguageNames FRENCH = {{
    "Processeur",
    "Total",
    "% Temps processeur",
    "Interface r\351seau",
    "Loopback",
    "Total des octets/s",
    "Bande passante actuelle",
    "Disque physique",
    "Octets disque/s",
}};

constexpr LanguageNames ITALIAN = {{
    "Processore",
    "Total",
    "% Tempo processore",
    "Interfaccia di rete",
    "Loopback",
    "Totale byte/sec",
    "Larghezza di banda corrente",
    "Disco fisico",
    "Byte da/a disco/sec",
}};

constexpr LanguageNames PORTUGUESE = {{
    "Processador",
    "Total",
    "% tempo de processador",
    "Interface de rede",
    "Loopback",
    "Total de bytes/s",
    "Largura de banda atual",
    "PhysicalDisk", // the English name
    "Bytes de disco/s",
}};

struct Language
{
    WORD wPrimary;
    const LanguageNames* pNames;
};

constexpr Language LANGUAGES[] = {{LANG_GERMAN, &GERMAN},
                                  {LANG_SPANISH, &SPANISH},
                                  {LANG_FRENCH, &FRENCH},
                                  {LANG_ITALIAN, &ITALIAN},
                                  {LANG_PORTUGUESE, &PORTUGUESE}};

Language SystemLanguage() noexcept
{
    const WORD wPrimary = PRIMARYLANGID(GetSystemDefaultLangID());
    for (const Language& language : LANGUAGES)
    {
        if (language.wPrimary == wPrimary)
        {
            return language;
        }
    }
    return {LANG_ENGLISH, &ENGLISH};
}

} // namespace

WORD CounterLanguage() noexcept
{
    return SystemLanguage().wPrimary;
}

int GetCounterResourceString(UINT nRole, char* pszBuffer, const DWORD* pcchBuffer) noexcept
{
    if (pszBuffer == nullptr)
    {
        return -1;
    }
    const LanguageNames& names = *SystemLanguage().pNames;
    if (nRole >= FIRST_ROLE && nRole < FIRST_ROLE + ROLES && pcchBuffer != nullptr)
    {
        CopyTextA(pszBuffer, *pcchBuffer, names.apszName[nRole - FIRST_ROLE]);
    }
    return 0;
}

bool VNXGetStringW(UINT nRole, wchar_t* pwszBuffer, int cchLimit) noexcept
{
    char szName[SCRATCH_CHARS] = "";
    const DWORD cchName = SCRATCH_CHARS;
    GetCounterResourceString(nRole, szName, &cchName);
    if (MultiByteToWideChar(CP_ACP, 0, szName, -1, pwszBuffer, cchLimit) == 0)
    {
        const DWORD dwError = GetLastError();
        Log()->Level1A("VNXGetStringW -- MultiByteToWideChar fail, return error(%d), szAnsiString[%s], limit(%d).",
                       dwError, szName, cchLimit);
        return false;
    }
    return true;
}

} // namespace varnex
