// The directory difference document (DIRTREEXML): the annotated tree, directories nested, each
// file as a DIRVAL whose closing tag stands on a line of its own.
#include <cstring>

#include "base/datetext.h"
#include "base/textutil.h"
#include "base/xmltext.h"
#include "items/dirtree/dirtree.h"

namespace orvalis {
namespace {

char Letter(const DirNode* n, bool oneSided) { return oneSided ? 'X' : ChangeLetterFromFlags(n->flags); }

void WriteText(FILE* out, const char* text) { WriteEscapedText(out, text, std::strlen(text)); }

void WriteNode(FILE* out, const DirNode* dir, bool oneSided) {
  constexpr uint16_t kShown = kDirChangeBelow | kDirNewerCopy | kDirModified | kDirNewer | kDirOlder;
  if (!oneSided && !(dir->flags & kShown)) return;
  std::fprintf(out, "  %s\n", "<DIRTREE>");
  std::fputs("   <NNAME>", out);
  WriteText(out, dir->path);
  std::fputs("</NNAME>", out);
  std::fprintf(out, "%s\"%c\"%s\n", "<CHGFLAG flag=", Letter(dir, oneSided), "/>");
  for (const DirNode* s = dir->subdirs; s; s = s->next) WriteNode(out, s, oneSided);
  const size_t plen = std::strlen(dir->path);
  for (const DirNode* f = dir->files; f; f = f->next) {
    if (!oneSided && !(f->flags & (kDirNewerCopy | kDirModified | kDirNewer | kDirOlder))) continue;
    std::fprintf(out, "    %s", "<DIRVAL>");
    std::fputs("    <FNAME>", out);
    const char* name = f->path;
    // Nodes merged in from the other side keep that side's spelling of the folder: the prefix is
    // matched without regard to case, as the file system does.
    if (CompareNoCaseN(name, dir->path, plen) == 0) {
      name += plen;
      if (*name == '\\') ++name;
    }
    WriteText(out, name);
    std::fputs("</FNAME>", out);
    std::fprintf(out, "%s\"%c\"%s", "<CHGFLAG flag=", Letter(f, oneSided), "/>");
    char stamp[64];
    FormatPackedDateTime(f->time, stamp);
    std::fprintf(out, "     %s%s%s", "<TIME>", stamp, "</TIME>");
    std::fprintf(out, "     %s%lu%s", "<SIZE>", static_cast<unsigned long>(f->size), "</SIZE>");
    std::fprintf(out, "\n    %s\n", "</DIRVAL>");
  }
  std::fprintf(out, "  %s\n", "</DIRTREE>");
}

}  // namespace

void WriteDirTreeDocument(FILE* out, const DirNode* root, bool oneSided) {
  std::fprintf(out, "%s\n", "<?xml version = \"1.0\"?>");
  std::fprintf(out, "%s\n", "<!DOCTYPE DIRTREEXML SYSTEM \"dirtree.dtd\">");
  std::fprintf(out, "%s\n", "<DIRTREEXML>");
  if (root) WriteNode(out, root, oneSided);
  std::fprintf(out, "%s\n", "</DIRTREEXML>");
}

}  // namespace orvalis
