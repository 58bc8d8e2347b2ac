#include <array>

#include "support/errors.h"
#include "support/text.h"

namespace {

struct TextRow {
  const char* key;
  const char* english;
  const char* german;
};

constexpr std::array kTexts = {
    TextRow{"download_log_desc", "[shared as %s]", "[freigegeben als %s]"},
    TextRow{"tree:leaf_filebrowser", "File manager", "Dateiverwaltung"},
    TextRow{"filebrowser:filebrowser_copy_completed", "Copied: %s", "Kopiert: %s"},
    TextRow{"filebrowser:filebrowser_copy_completed_skip_all",
            "Nothing was copied, everything exists already: %s",
            "Nichts kopiert, alles war schon vorhanden: %s"},
    TextRow{"filebrowser:filebrowser_copy_completed_skip_some",
            "Copied, some entries existed already and were skipped: %s",
            "Kopiert, bereits Vorhandenes wurde übersprungen: %s"},
    TextRow{"filebrowser:filebrowser_move_completed", "Moved: %s", "Verschoben: %s"},
    TextRow{"filebrowser:filebrowser_move_completed_skip_all",
            "Nothing was moved, everything exists already: %s",
            "Nichts verschoben, alles war schon vorhanden: %s"},
    TextRow{"filebrowser:filebrowser_move_completed_skip_some",
            "Moved, some entries existed already and were skipped: %s",
            "Verschoben, bereits Vorhandenes wurde übersprungen: %s"},
    TextRow{"filebrowser:filebrowser_copy_failed", "%s was not copied: %s",
            "%s wurde nicht kopiert: %s"},
    TextRow{"filebrowser:filebrowser_move_failed", "%s was not moved: %s",
            "%s wurde nicht verschoben: %s"},
};

struct ErrorTextRow {
  int code;
  const char* german;
};

constexpr std::array kGermanErrors = {
    ErrorTextRow{WEBFM_OK, "Kein Fehler."},
    ErrorTextRow{WEBFM_UNKNOWN_METHOD, "Die Methode gibt es nicht."},
    ErrorTextRow{WEBFM_BAD_PARAMETER, "Ein Parameter fehlt oder ist falsch."},
    ErrorTextRow{WEBFM_FAILED, "Der Vorgang ist fehlgeschlagen."},
    ErrorTextRow{WEBFM_NO_PERMISSION, "Sie haben dazu keine Berechtigung."},
    ErrorTextRow{WEBFM_MOUNT_LOST, "Der Netzwerkordner antwortet nicht."},
    ErrorTextRow{WEBFM_QUOTA_EXCEEDED, "Das Speicherkontingent ist aufgebraucht."},
    ErrorTextRow{WEBFM_ILLEGAL_NAME, "Der Name oder Pfad ist nicht erlaubt."},
    ErrorTextRow{WEBFM_NOT_SUPPORTED, "Das Dateisystem oder der Server kann das nicht ausführen."},
    ErrorTextRow{WEBFM_MOUNT_GONE, "Der Netzwerkordner ist nicht mehr verbunden."},
    ErrorTextRow{WEBFM_NOT_FOUND, "Die Datei oder der Ordner existiert nicht."},
    ErrorTextRow{WEBFM_READ_ONLY, "Das Dateisystem kann nur gelesen werden."},
    ErrorTextRow{WEBFM_NAME_TOO_LONG, "Der Name oder Pfad ist zu lang."},
    ErrorTextRow{WEBFM_NO_SPACE, "Es ist nicht genug Platz frei."},
    ErrorTextRow{WEBFM_IO_ERROR, "Das Speichergerät hat einen Fehler gemeldet."},
    ErrorTextRow{WEBFM_NOT_A_FOLDER, "Hier muss ein Ordner stehen."},
    ErrorTextRow{WEBFM_NOT_A_FILE, "Hier muss eine Datei stehen."},
    ErrorTextRow{WEBFM_BUSY, "Die Datei oder der Ordner wird gerade benutzt."},
    ErrorTextRow{WEBFM_TOO_MANY_LINKS, "Es sind zu viele Verknüpfungen oder offene Dateien."},
    ErrorTextRow{WEBFM_UNKNOWN_USER, "Den Benutzer gibt es nicht."},
    ErrorTextRow{WEBFM_NO_SHARE, "Den freigegebenen Ordner gibt es nicht."},
    ErrorTextRow{WEBFM_OUT_OF_MEMORY, "Der Server hat keinen Arbeitsspeicher mehr."},
    ErrorTextRow{WEBFM_CANCELLED, "Der Vorgang wurde abgebrochen."},
    ErrorTextRow{WEBFM_WORKER_DIED, "Die Aufgabe endete, bevor sie fertig war."},
    ErrorTextRow{WEBFM_NO_SUCH_TASK, "Die Aufgabe gibt es nicht."},
    ErrorTextRow{WEBFM_COPY_FAILED, "Das Kopieren ist fehlgeschlagen."},
    ErrorTextRow{WEBFM_MOVE_FAILED, "Das Verschieben ist fehlgeschlagen."},
    ErrorTextRow{WEBFM_DEST_FAILED, "Der Zielordner kann nicht benutzt werden."},
    ErrorTextRow{WEBFM_CONFLICT, "Am Ziel gibt es schon einen Eintrag mit diesem Namen."},
    ErrorTextRow{WEBFM_TYPE_CONFLICT,
                 "Eine Datei kann keinen Ordner ersetzen und ein Ordner keine Datei."},
    ErrorTextRow{WEBFM_BAD_FILE_NAME, "Das Ziel lässt diesen Dateinamen nicht zu."},
    ErrorTextRow{WEBFM_FILE_TOO_BIG, "Die Datei ist zu groß für das Dateisystem des Ziels."},
    ErrorTextRow{WEBFM_REMOTE_UNREACHABLE, "Der entfernte Server ist nicht erreichbar."},
    ErrorTextRow{WEBFM_REMOTE_IO, "Der entfernte Server hat einen Fehler gemeldet."},
    ErrorTextRow{WEBFM_REMOTE_REFUSED, "Der entfernte Server hat die Verbindung abgelehnt."},
    ErrorTextRow{WEBFM_REMOTE_TOO_LARGE, "Die Datei ist zu groß für den entfernten Server."},
    ErrorTextRow{WEBFM_REMOTE_BAD_NAME, "Der entfernte Server lässt diesen Namen nicht zu."},
};

const char* ErrorKeyText(const std::string& key, bool german) {
  for (const ErrorTextRow& row : kGermanErrors) {
    if (WfmParseErrorToKVXString(row.code, 0) == key) {
      return german ? row.german : support::ErrorText(row.code);
    }
  }
  if (key != WfmParseErrorToKVXString(-1, 0)) return nullptr;
  return german ? "Ein unbekannter Fehler ist aufgetreten." : support::ErrorText(-1);
}

}  // namespace

std::string WfmLibGetText(const std::string& key, const std::string& language) {
  const bool german = language == "ger";
  for (const TextRow& row : kTexts) {
    if (key == row.key) return german ? row.german : row.english;
  }
  const char* text = key.starts_with("error:") ? ErrorKeyText(key, german) : nullptr;
  return text ? text : key;
}

namespace support {

std::vector<std::string> TextKeys() {
  std::vector<std::string> keys;
  keys.reserve(kTexts.size());
  for (const TextRow& row : kTexts) keys.emplace_back(row.key);
  return keys;
}

std::vector<std::string> TextLanguages() { return {"enu", "ger"}; }

}  // namespace support
