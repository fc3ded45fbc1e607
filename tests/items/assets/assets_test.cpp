// Assets in snapshots under Wine: the ASSETINFO stage driving CORVID.DLL, ASSETXML and deletion.
#include "base/companion_api.h"
#include "engine/sys.h"
#include "exports/exports.h"
#include "tests/support/engine_sandbox.h"

using namespace orvalis;
using namespace orvalis_test;

namespace {

// The options the engine passes, seen through the seam's GetProcAddress.
std::vector<uint32_t> g_options;
SnapResFromWildcardFn g_realSnap;
FARPROC(WINAPI* g_realGetProc)(HMODULE, LPCSTR);

int __cdecl RecordingSnap(const char* asset, const char* index, const char* companion, uint16_t* result,
                          uint32_t options) {
  g_options.push_back(options);
  return g_realSnap(asset, index, companion, result, options);
}
FARPROC WINAPI ProcRecordingSnap(HMODULE h, LPCSTR name) {
  FARPROC p = g_realGetProc(h, name);
  if (std::string(name) != "_SnapResFromWildcard" || !p) return p;
  g_realSnap = reinterpret_cast<SnapResFromWildcardFn>(reinterpret_cast<void*>(p));
  return reinterpret_cast<FARPROC>(reinterpret_cast<void*>(RecordingSnap));
}

class Assets : public ::testing::Test {
 protected:
  void SetUp() override {
    box_.MakeDirs({"NIMBRA", "windows", "windows\\Fonts", "app", "app\\sub"});
    box_.SetWindowsFolder(box_.file("windows"));
    WriteWholeFile(box_.file("windows\\Fonts\\a.ttf"), "font a");
    WriteWholeFile(box_.file("windows\\Fonts\\b.fon"), "not matched");
    WriteWholeFile(box_.file("app\\one.dll"), "one");
    WriteWholeFile(box_.file("app\\sub\\two.dll"), "two");
  }
  std::string Snap(const std::string& assets) {
    WriteWholeFile(box_.file("A.GCF"), "assets\n[GROUPASSET_START]\n" + assets + "[GROUPASSET_END]\n");
    EXPECT_EQ(CreateSnapshotFromSpecifiedProfile("A.GCF", "assets"), 0u);
    return ReadWholeFile(box_.file("BASE0000.BCF"));
  }
  EngineSandbox box_;
};

TEST_F(Assets, TheStageAsTheEngineDrivesTheLibraryWithAndWithoutAssetsOrLibrary) {
  g_realGetProc = Sys().GetProcAddress;
  Sys().GetProcAddress = ProcRecordingSnap;
  g_options.clear();
  const std::string app = box_.file("app");
  const std::string index = Snap("<windows>\\Fonts\\*.ttf,0,0\n" + app + ",5,28673\n" + app + "\\*.exe,0,8192\n");
  // One companion for all; the options recorded as given (28673 = 0x7001) but passed masked.
  EXPECT_EQ(IndexSection(index, "ASSETINFO"), box_.file("windows") + "\\Fonts\\*.ttf,AST0000.OVA,1,0\r\n" + app +
                                                  ",AST0000.OVA,1,28673\r\n" + app + "\\*.exe,AST0000.OVA,0,8192\r\n");
  EXPECT_EQ(g_options, (std::vector<uint32_t>{0, 0x3000, 0x2000}));
  const std::string out = box_.file("a.xml"), one = "<FNAME><![CDATA[one.dll]]></FNAME>\r\n     <CHGFLAG flag=";
  ASSERT_EQ(CompareAssettoXML("BASE0000.BCF", nullptr, app.c_str(), out.c_str(), 0), 0u);
  const std::string listing = ReadWholeFile(out);
  EXPECT_NE(listing.find("<!DOCTYPE ASSETXML SYSTEM \"asset.dtd\">"), std::string::npos);
  EXPECT_NE(listing.find(one + "\"X\"/>"), std::string::npos) << listing;
  EXPECT_NE(listing.find("<FNAME><![CDATA[sub\\two.dll]]></FNAME>"), std::string::npos) << listing;
  WriteWholeFile(box_.file("app\\one.dll"), "one, patched");
  ASSERT_EQ(CompareAssettoXML("BASE0000.BCF", nullptr, app.c_str(), out.c_str(), 1), 0u);
  const std::string live = ReadWholeFile(out);
  EXPECT_NE(live.find(one + "\"F\"/>"), std::string::npos) << live;
  EXPECT_NE(live.find(one + "\"T\"/>"), std::string::npos) << live;
  EXPECT_EQ(live.find("two.dll"), std::string::npos) << live;  // unchanged: left out
  EXPECT_EQ(CompareAssettoXML("BASE0000.BCF", nullptr, box_.file("elsewhere").c_str(), out.c_str(), 1), 87u);
  EXPECT_EQ(CompareAssettoXML(nullptr, nullptr, app.c_str(), out.c_str(), 0), 87u);
  ASSERT_EQ(DeleteSnapshot("BASE0000.BCF"), 0u);
  EXPECT_FALSE(FileExists(box_.file("NIMBRA\\AST0000.OVA")));
  // Without assets the empty reservation stays (kept as it is: it is removed by its bare name from
  // the current folder).
  EXPECT_EQ(IndexSection(Snap(""), "ASSETINFO"), "");
  EXPECT_TRUE(FileExists(box_.file("NIMBRA\\AST0000.OVA")) && ReadWholeFile(box_.file("NIMBRA\\AST0000.OVA")).empty());
  // Without CORVID.DLL the stage fails and the snapshot is discarded.
  DeleteFileA(box_.file("BASE0000.BCF").c_str());
  box_.RemoveCompanionLibraries();
  box_.CopyFromBin("MARLOW.DLL");
  EXPECT_EQ(Snap("C:\\x,0,0\n"), "");
}

}  // namespace
