#include "webapi/module_state.h"

extern "C" {
std::map<std::string, COPY_PARM> _mapCopyParam;
COPY_PARM _destCopyParam;
}

namespace Fennox {

KVX::Task* _task = nullptr;
Json::Value _taskDataSnapshot;

std::vector<PathInfo> _srcPathInfos;
PathInfo _destPathInfo;
std::unique_ptr<core::FromBehind<SourceLook>> _sourceLooks;
std::map<std::string, unsigned long long> _dirSizeCache;

std::string _processingPath;
bool _accurateProgress = true;
bool _notStarted = true;
bool _hadFailure = false;
std::atomic<int> _cancelRequested{0};

std::uint64_t _processedBytes = 0;
std::uint64_t _lastChunkBytes = 0;
std::uint64_t _totalAmount = 0;
std::uint64_t _processedNum = 0;
std::int64_t _lastWriteTime = 0;
std::uint64_t _bytesAtLastWrite = 0;
timespec _lastRateClock{};
std::uint64_t _foundDirNum = 0;
std::uint64_t _foundFileNum = 0;
std::uint64_t _foundFileSize = 0;

TAVOCOPYOPTIONS _copyOptions{};
_TAVOCOPYARGSEX* _copyArgs = nullptr;
int _destFsType = -1;
int _srcFsType = -1;

TAVOCloud::Cloud* _srcCloud = nullptr;
TAVOCloud::Cloud* _destCloud = nullptr;
std::shared_ptr<TAVOCloud::ReadAhead> _readAhead;
std::string _readAheadServer;

std::string _streamedPath;
bool _streamRefused = false;
bool _mountTakesNoMarks = false;

}  // namespace Fennox
