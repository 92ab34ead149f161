#include "host/memory/memory_host.h"

#include "host/memory/file_reads.h"
#include "host/memory/memory_host_impl.h"

namespace hostmodel {
namespace {

INode* findNodeIn(MemoryNode& node, const std::string& id, const std::map<const INode*, std::string>& ids) {
  const auto it = ids.find(&node);
  const std::string& nodeId = it != ids.end() ? it->second : std::string(node.GetName());
  if (!node.IsRootNode() && nodeId == id) return &node;
  for (const auto& child : node.children())
    if (INode* found = findNodeIn(*child, id, ids)) return found;
  return nullptr;
}

template <typename T, typename Map>
T* lookUp(const Map& map, const std::string& id) {
  const auto it = map.find(id);
  return it == map.end() ? nullptr : it->second;
}

}  // namespace

MemoryHost::MemoryHost(std::unique_ptr<Impl> impl) : impl_(std::move(impl)) {}
MemoryHost::~MemoryHost() = default;

const std::vector<ProgressCall>& MemoryHost::progressCalls() const { return impl_->progressCalls; }
const std::vector<std::string>& MemoryHost::messageBoxes() const { return impl_->messageBoxes; }
const std::vector<std::string>& MemoryHost::filesNotSaved() const { return impl_->filesNotSaved; }
const std::vector<std::string>& MemoryHost::exportInfoTexts() const { return impl_->exportInfoTexts; }
int MemoryHost::cancelQueries() const { return impl_->cancelQueries; }

void MemoryHost::setCancelFromCall(int n) { impl_->cancelFromCall = n; }
void MemoryHost::setConfigDir(const std::string& dir) { impl_->configDir = dir; }
void MemoryHost::setProgressObserver(std::function<void(const ProgressCall&)> observer) {
  impl_->progressObserver = std::move(observer);
}

void MemoryHost::setOptionsEditor(std::function<void(OptionsDialog&)> editor) {
  impl_->optionsEditor = std::move(editor);
}
void MemoryHost::setVerboseSink(std::function<void(const std::string&)> sink) { impl_->verboseSink = std::move(sink); }
void MemoryHost::EditExportOptions(OptionsDialog& record) {
  if (impl_->optionsEditor) impl_->optionsEditor(record);
}
std::function<void(const std::string&)> MemoryHost::GetVerboseSink() { return impl_->verboseSink; }
void MemoryHost::setWritesSuppressed(bool suppressed) { impl_->writesSuppressed = suppressed; }
bool MemoryHost::WritesSuppressed() { return impl_->writesSuppressed; }
void MemoryHost::setTextureCopiesOutsideAllowed(bool allowed) { impl_->textureCopiesOutsideAllowed = allowed; }
bool MemoryHost::TextureCopiesOutsideAllowed() { return impl_->textureCopiesOutsideAllowed; }
void MemoryHost::setFlushesDeferred(bool deferred) { impl_->flushesDeferred = deferred; }
bool MemoryHost::FlushesDeferred() { return impl_->flushesDeferred; }
void MemoryHost::setChangedTextureCopiesReplaced(bool replaced) { impl_->changedTextureCopiesReplaced = replaced; }
bool MemoryHost::ChangedTextureCopiesReplaced() { return impl_->changedTextureCopiesReplaced; }
void MemoryHost::setTextureCopiesNamedByContent(bool named) { impl_->textureCopiesNamedByContent = named; }
bool MemoryHost::TextureCopiesNamedByContent() { return impl_->textureCopiesNamedByContent; }
void MemoryHost::setKeyErrorBound(bool bound) { impl_->keyErrorBound = bound; }
bool MemoryHost::KeyErrorBound() { return impl_->keyErrorBound; }
void MemoryHost::TextureCopyUsed(const std::string& path) { noteFileWritten(path); }
void MemoryHost::setStageObserver(std::function<void(const char*)> observer) {
  impl_->stageObserver = std::move(observer);
}
void MemoryHost::ExportStage(const char* stage) {
  if (impl_->stageObserver) impl_->stageObserver(stage);
}

const std::string& MemoryHost::sourceName() const { return impl_->sourceName; }

INode* MemoryHost::findNode(const std::string& id) const { return findNodeIn(impl_->root, id, impl_->nodeIds); }
Object* MemoryHost::findObject(const std::string& id) const { return lookUp<Object>(impl_->objectsById, id); }
Mtl* MemoryHost::findMaterial(const std::string& id) const { return lookUp<MemoryMtl>(impl_->materialsById, id); }
Texmap* MemoryHost::findTexmap(const std::string& id) const { return lookUp<MemoryTexmap>(impl_->texmapsById, id); }

int MemoryHost::outstandingVertexInterfaces() const {
  int n = 0;
  for (const MemoryPhysiqueContext* ctx : impl_->physiqueContexts) n += ctx->outstandingVertexInterfaces();
  return n;
}

INode* MemoryHost::GetRootNode() { return &impl_->root; }
Interval MemoryHost::GetAnimRange() { return impl_->animRange; }
BitmapManager* MemoryHost::GetBitmapManager() { return &impl_->bitmapManager; }
int MemoryHost::outstandingBitmaps() const { return impl_->bitmapManager.outstandingBitmaps(); }
void MemoryHost::addTexturePaths(const std::vector<std::string>& dirs) {
  std::vector<std::string> all = impl_->bitmapManager.searchDirs();
  all.insert(all.end(), dirs.begin(), dirs.end());
  impl_->bitmapManager.setSearchDirs(std::move(all));
}
const std::vector<std::string>& MemoryHost::textureNotes() const { return impl_->bitmapManager.notes(); }
const std::vector<std::string>& MemoryHost::imageProblems() const { return impl_->bitmapManager.problems(); }

std::string MemoryHost::GetDir(int which) { return which == APP_PLUGCFG_DIR ? impl_->configDir : std::string(); }
int MemoryHost::GetFrameRate() { return impl_->frameRate; }
int MemoryHost::sourceFrameRate() const { return impl_->sourceFrameRate; }
void MemoryHost::SetFrameRate(int rate) { impl_->frameRate = rate; }
int MemoryHost::GetTicksPerFrame() {
  return impl_->frameRate > 0 ? TIME_TICKSPERSEC / impl_->frameRate : TIME_TICKSPERSEC;
}

void MemoryHost::ProgressStart(const std::string& title, bool showBar) {
  impl_->progressCalls.push_back({ProgressCall::Start, 0, title, showBar});
  if (impl_->progressObserver) impl_->progressObserver(impl_->progressCalls.back());
}

void MemoryHost::ProgressUpdate(int percent, bool showPercent, const std::string& title) {
  impl_->progressCalls.push_back({ProgressCall::Update, percent, title, showPercent});
  if (impl_->progressObserver) impl_->progressObserver(impl_->progressCalls.back());
}

void MemoryHost::ProgressEnd() {
  impl_->progressCalls.push_back({ProgressCall::End, 0, std::string(), false});
  if (impl_->progressObserver) impl_->progressObserver(impl_->progressCalls.back());
}

bool MemoryHost::GetCancel() {
  ++impl_->cancelQueries;
  return impl_->cancelFromCall > 0 && impl_->cancelQueries >= impl_->cancelFromCall;
}

Color MemoryHost::GetAmbient(TimeValue t, Interval& valid) {
  if (impl_->ambient.animated()) valid = {t, t};
  return impl_->ambient.at(t);
}

Color MemoryHost::GetBackGround(TimeValue t, Interval& valid) {
  if (impl_->background.animated()) valid = {t, t};
  return impl_->background.at(t);
}

void MemoryHost::MessageBox(const std::string& text, const std::string& caption) {
  (void)caption;
  impl_->messageBoxes.push_back(text);
}

void MemoryHost::ShowExportInfo(const std::string& text) { impl_->exportInfoTexts.push_back(text); }

void MemoryHost::FileNotSaved(const std::string& file, const std::string& reason) {
  impl_->filesNotSaved.push_back(file + ": cannot save: " + reason);
}

}  // namespace hostmodel
