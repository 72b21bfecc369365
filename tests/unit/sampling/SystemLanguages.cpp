#include "unit/sampling/SystemLanguages.h"

#include "support/TestText.h"

namespace varnex::test
{

std::wstring SystemLanguage::WideName(UINT nRole) const
{
    return WideFromAnsi(names.at(nRole - FIRST_ROLE));
}

const std::vector<SystemLanguage>& SystemLanguages()
{
    static const std::vector<SystemLanguage> languages{
        {"English",
         {MAKELANGID(LANG_ENGLISH, SUBLANG_ENGLISH_US), MAKELANGID(LANG_ENGLISH, SUBLANG_ENGLISH_UK)},
         {"Processor", "Total", "% Processor Time", "Network Interface", "Loopback", "Bytes Total/sec",
          "Current Bandwidth", "PhysicalDisk", "Disk Bytes/sec"}},
        {"German",
         {MAKELANGID(LANG_GERMAN, SUBLANG_GERMAN), MAKELANGID(LANG_GERMAN, SUBLANG_GERMAN_SWISS),
          MAKELANGID(LANG_GERMAN, SUBLANG_GERMAN_LIECHTENSTEIN)},
         {"Prozessor", "Total", "Prozessorzeit (%)", "Netzwerkschnittstelle", "Loopback", "Bytes gesendet/s",
          "Aktuelle Bandbreite",
          "physikalischer Datentr\xE4"
          "ger",
          "Bytes auf Festplatte/Sek"}},
        {"Spanish",
         {MAKELANGID(LANG_SPANISH, SUBLANG_SPANISH), MAKELANGID(LANG_SPANISH, SUBLANG_SPANISH_MEXICAN)},
         {"Procesador", "Total", "% de tiempo de procesador", "Interfaz de red", "loopback", "Total de bytes/s",
          "Ancho de banda actual",
          "DiscoF\xED"
          "sico",
          "Bytes de s."}},
        {"French",
         {MAKELANGID(LANG_FRENCH, SUBLANG_FRENCH), MAKELANGID(LANG_FRENCH, SUBLANG_FRENCH_CANADIAN)},
         {"Processeur", "Total", "% Temps processeur",
          "Interface r\xE9"
          "seau",
          "Loopback", "Total des octets/s", "Bande passante actuelle", "Disque physique", "Octets disque/s"}},
        {"Italian",
         {MAKELANGID(LANG_ITALIAN, SUBLANG_ITALIAN), MAKELANGID(LANG_ITALIAN, SUBLANG_ITALIAN_SWISS)},
         {"Processore", "Total", "% Tempo processore", "Interfaccia di rete", "Loopback", "Totale byte/sec",
          "Larghezza di banda corrente", "Disco fisico", "Byte da/a disco/sec"}},
        {"Portuguese",
         {MAKELANGID(LANG_PORTUGUESE, SUBLANG_PORTUGUESE), MAKELANGID(LANG_PORTUGUESE, SUBLANG_PORTUGUESE_BRAZILIAN)},
         {"Processador", "Total", "% tempo de processador", "Interface de rede", "Loopback", "Total de bytes/s",
          "Largura de banda atual", "PhysicalDisk", "Bytes de disco/s"}}};
    return languages;
}

} // namespace varnex::test
