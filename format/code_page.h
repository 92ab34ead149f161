// Names and paths in our files are bytes in the code page of the host that
// wrote them: Windows-1252 on the Western systems it runs on. Everything that
// shows them as text (zt2dump, the Python package, messages) decodes them here,
// the same way everywhere.
#pragma once

#include <string>
#include <string_view>

// `bytes` read as Windows-1252, as UTF-8. Every byte has a character: the five
// the code page leaves undefined (0x81, 0x8D, 0x8F, 0x90, 0x9D) stand for the
// C1 controls of the same number (U+0081...), as web browsers read them, so
// no two byte strings give the same text and codePageFromUtf8 gives the bytes
// back.
std::string codePageToUtf8(std::string_view bytes);

// The inverse: the code page's bytes for UTF-8 `text`. False when `text` is
// not UTF-8 or holds a character the code page has no byte for.
bool codePageFromUtf8(std::string_view text, std::string& bytes);

// `text` (UTF-8) as the host's code page would hold it: each character the
// code page lacks, and each byte that is not UTF-8, becomes '?', as the
// system's own conversion to the code page does.
std::string codePageFromUtf8Lossy(std::string_view text);

// Bytes for a person to read: themselves when they are UTF-8 already (a path
// of this system, an ASCII name), otherwise read as the code page. Messages
// mix names in the code page with paths of the file system; each reads right.
std::string displayText(std::string_view bytes);
