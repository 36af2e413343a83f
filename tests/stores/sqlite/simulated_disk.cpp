#include <tests/stores/sqlite/simulated_disk.h>

#include <algorithm>
#include <cstring>
#include <new>

namespace TalVcs::Testing {
namespace {

constexpr std::size_t kSector = 512;
// A damaged file can ask for any place.
constexpr std::uint64_t kLongestFile = std::uint64_t{64} << 20;

void Overwrite(std::string& content, std::uint64_t position, const std::string& bytes) {
  if (content.size() < position + bytes.size()) content.resize(position + bytes.size());
  content.replace(position, bytes.size(), bytes);
}

void Apply(std::string& content, const SimulatedFile::Change& change) {
  if (change.isTruncation) {
    content.resize(change.position);
  } else {
    Overwrite(content, change.position, change.bytes);
  }
}

/// Splits a change at the boundaries of sectors.
std::vector<SimulatedFile::Change> SectorsOf(const SimulatedFile::Change& change) {
  if (change.isTruncation) return {change};
  std::vector<SimulatedFile::Change> sectors;
  std::size_t done = 0;
  while (done < change.bytes.size()) {
    const std::uint64_t position = change.position + done;
    const std::size_t size =
        std::min<std::size_t>(kSector - position % kSector, change.bytes.size() - done);
    sectors.push_back({position, change.bytes.substr(done, size), false});
    done += size;
  }
  return sectors;
}

}  // namespace

/// What SQLite calls. The handle of a file that was opened before a loss of power has no effect.
struct DiskCalls {
  struct Handle {
    sqlite3_file base;
    SimulatedDisk* disk;
    std::shared_ptr<SimulatedFile>* file;
    std::string* name;
    std::uint64_t generation;
  };

  static SimulatedDisk& DiskOf(sqlite3_vfs* vfs) {
    return *static_cast<SimulatedDisk*>(vfs->pAppData);
  }
  static Handle& HandleOf(sqlite3_file* file) { return *reinterpret_cast<Handle*>(file); }

  static bool Begin(const Handle& handle) {
    return handle.disk->Begin() && handle.generation == handle.disk->m_generation;
  }

  static int Close(sqlite3_file* file) {
    delete HandleOf(file).file;
    delete HandleOf(file).name;
    return SQLITE_OK;
  }

  static int Read(sqlite3_file* file, void* target, int size, sqlite3_int64 position) {
    const Handle& handle = HandleOf(file);
    if (!Begin(handle)) return SQLITE_IOERR_READ;
    const std::string& seen = (*handle.file)->seen;
    const auto wanted = static_cast<std::size_t>(size);
    const std::size_t begin =
        std::min<std::size_t>(static_cast<std::size_t>(position), seen.size());
    const std::size_t count = std::min(wanted, seen.size() - begin);
    std::memset(target, 0, wanted);
    std::memcpy(target, seen.data() + begin, count);
    return count == wanted ? SQLITE_OK : SQLITE_IOERR_SHORT_READ;
  }

  static int Write(sqlite3_file* file, const void* bytes, int size, sqlite3_int64 position) {
    const Handle& handle = HandleOf(file);
    SimulatedFile& target = **handle.file;
    SimulatedFile::Change change{
        static_cast<std::uint64_t>(position),
        std::string(static_cast<const char*>(bytes), static_cast<std::size_t>(size)), false};
    const bool works = Begin(handle);
    const std::uint64_t end = change.position + change.bytes.size();
    if (end > kLongestFile || (handle.disk->m_isFull && end > target.seen.size())) {
      return SQLITE_FULL;
    }
    if (!works) {
      if (handle.disk->IsOff()) return SQLITE_IOERR_WRITE;
      change.bytes.resize(change.bytes.size() / 2);
    }
    Apply(target.seen, change);
    target.unsynced.push_back(std::move(change));
    return works ? SQLITE_OK : SQLITE_IOERR_WRITE;
  }

  static int Truncate(sqlite3_file* file, sqlite3_int64 size) {
    const Handle& handle = HandleOf(file);
    if (!Begin(handle)) return SQLITE_IOERR_TRUNCATE;
    const SimulatedFile::Change change{static_cast<std::uint64_t>(size), std::string(), true};
    Apply((*handle.file)->seen, change);
    (*handle.file)->unsynced.push_back(change);
    return SQLITE_OK;
  }

  static int Sync(sqlite3_file* file, int) {
    const Handle& handle = HandleOf(file);
    if (!Begin(handle)) return SQLITE_IOERR_FSYNC;
    handle.disk->Sync(*handle.name, **handle.file);
    return SQLITE_OK;
  }

  static int FileSize(sqlite3_file* file, sqlite3_int64* size) {
    const Handle& handle = HandleOf(file);
    if (!Begin(handle)) return SQLITE_IOERR_FSTAT;
    *size = static_cast<sqlite3_int64>((*handle.file)->seen.size());
    return SQLITE_OK;
  }

  // One connection at a time uses the disk, so that locks have nothing to do.
  static int Lock(sqlite3_file* file, int) {
    const Handle& handle = HandleOf(file);
    return Begin(handle) && handle.disk->m_hasLocks ? SQLITE_OK : SQLITE_IOERR_LOCK;
  }
  static int Unlock(sqlite3_file*, int) { return SQLITE_OK; }
  static int CheckReservedLock(sqlite3_file*, int* isLocked) {
    *isLocked = 0;
    return SQLITE_OK;
  }
  static int FileControl(sqlite3_file*, int, void*) { return SQLITE_NOTFOUND; }
  static int SectorSize(sqlite3_file*) { return kSector; }
  static int DeviceCharacteristics(sqlite3_file*) { return SQLITE_IOCAP_POWERSAFE_OVERWRITE; }

  static int MapShared(sqlite3_file* file, int region, int size, int extends,
                       void volatile** memory) {
    const Handle& handle = HandleOf(file);
    *memory = nullptr;
    if (!Begin(handle)) return SQLITE_IOERR_SHMMAP;
    auto& shared = (*handle.file)->shared;
    if (!shared.contains(region)) {
      if (!extends) return SQLITE_OK;
      shared[region].resize(static_cast<std::size_t>(size));
    }
    *memory = shared[region].data();
    return SQLITE_OK;
  }
  static int LockShared(sqlite3_file*, int, int, int) { return SQLITE_OK; }
  static void BarShared(sqlite3_file*) {}
  static int UnmapShared(sqlite3_file* file, int removes) {
    if (removes) (*HandleOf(file).file)->shared.clear();
    return SQLITE_OK;
  }

  static sqlite3_io_methods MethodsOfVersion(int version) {
    return {
        .iVersion = version,
        .xClose = Close,
        .xRead = Read,
        .xWrite = Write,
        .xTruncate = Truncate,
        .xSync = Sync,
        .xFileSize = FileSize,
        .xLock = Lock,
        .xUnlock = Unlock,
        .xCheckReservedLock = CheckReservedLock,
        .xFileControl = FileControl,
        .xSectorSize = SectorSize,
        .xDeviceCharacteristics = DeviceCharacteristics,
        .xShmMap = MapShared,
        .xShmLock = LockShared,
        .xShmBarrier = BarShared,
        .xShmUnmap = UnmapShared,
        .xFetch = nullptr,
        .xUnfetch = nullptr,
    };
  }

  static int Open(sqlite3_vfs* vfs, const char* name, sqlite3_file* file, int flags,
                  int* outFlags) {
    // Shared memory came with version 2.
    static const sqlite3_io_methods kMethods = MethodsOfVersion(2);
    static const sqlite3_io_methods kMethodsWithoutSharedMemory = MethodsOfVersion(1);
    SimulatedDisk& disk = DiskOf(vfs);
    file->pMethods = nullptr;
    if (!disk.Begin()) return SQLITE_CANTOPEN;
    const std::string key = name ? name : "";
    if (!disk.m_seen.contains(key)) {
      if (!(flags & SQLITE_OPEN_CREATE)) return SQLITE_CANTOPEN;
      disk.m_seen[key] = std::make_shared<SimulatedFile>();
    }
    Handle& handle = HandleOf(file);
    handle.disk = &disk;
    handle.file = new std::shared_ptr<SimulatedFile>(disk.m_seen[key]);
    handle.name = new std::string(key);
    handle.generation = disk.m_generation;
    file->pMethods = disk.m_hasSharedMemory ? &kMethods : &kMethodsWithoutSharedMemory;
    if (outFlags) *outFlags = flags;
    return SQLITE_OK;
  }

  static int Delete(sqlite3_vfs* vfs, const char* name, int syncsFolder) {
    SimulatedDisk& disk = DiskOf(vfs);
    const bool works = disk.Begin();
    if (disk.IsOff()) return SQLITE_IOERR_DELETE;
    // A folder that can't be synced has lost the name already.
    disk.m_seen.erase(name);
    if (!works) return SQLITE_IOERR_DIR_FSYNC;
    if (syncsFolder) disk.m_kept.erase(name);
    return SQLITE_OK;
  }

  static int Access(sqlite3_vfs* vfs, const char* name, int, int* result) {
    SimulatedDisk& disk = DiskOf(vfs);
    if (!disk.Begin()) return SQLITE_IOERR_ACCESS;
    *result = disk.m_seen.contains(name);
    return SQLITE_OK;
  }

  static int FullPathname(sqlite3_vfs*, const char* name, int size, char* target) {
    sqlite3_snprintf(size, target, "%s", name);
    return SQLITE_OK;
  }
  static int Randomness(sqlite3_vfs*, int size, char* target) {
    std::memset(target, 7, static_cast<std::size_t>(size));
    return size;
  }
  static int Sleep(sqlite3_vfs*, int microseconds) { return microseconds; }
  static int CurrentTime(sqlite3_vfs*, double* days) {
    *days = 2451545;
    return SQLITE_OK;
  }
  static int GetLastError(sqlite3_vfs*, int, char*) { return 0; }
};

SimulatedDisk::SimulatedDisk() {
  m_vfsName = "simulated-disk";
  m_vfs.iVersion = 1;
  m_vfs.szOsFile = sizeof(DiskCalls::Handle);
  m_vfs.mxPathname = 4096;
  m_vfs.zName = m_vfsName.c_str();
  m_vfs.pAppData = this;
  m_vfs.xOpen = DiskCalls::Open;
  m_vfs.xDelete = DiskCalls::Delete;
  m_vfs.xAccess = DiskCalls::Access;
  m_vfs.xFullPathname = DiskCalls::FullPathname;
  m_vfs.xRandomness = DiskCalls::Randomness;
  m_vfs.xSleep = DiskCalls::Sleep;
  m_vfs.xCurrentTime = DiskCalls::CurrentTime;
  m_vfs.xGetLastError = DiskCalls::GetLastError;
  sqlite3_vfs_register(&m_vfs, 1);
}

SimulatedDisk::~SimulatedDisk() { sqlite3_vfs_unregister(&m_vfs); }

bool SimulatedDisk::Begin() noexcept {
  const std::uint64_t call = m_calls++;
  const bool fails = call == m_failAt || call >= m_lossAt;
  m_hasFailed = m_hasFailed || fails;
  return !fails;
}

void SimulatedDisk::Sync(const std::string& name, SimulatedFile& file) {
  file.kept = file.seen;
  file.unsynced.clear();
  const auto found = m_seen.find(name);
  if (found != m_seen.end()) m_kept[name] = found->second;
}

void SimulatedDisk::Restart(Unsynced unsynced, unsigned seed) {
  std::mt19937 random(seed);
  const auto survives = [&] {
    return unsynced == Unsynced::Kept || (unsynced == Unsynced::Random && random() % 2 == 0);
  };
  std::map<std::string, FilePointer> left = m_kept;
  for (const auto& [name, file] : m_kept) {
    if (!m_seen.contains(name) && survives()) left.erase(name);
  }
  for (const auto& [name, file] : m_seen) {
    if (survives()) left.insert_or_assign(name, file);
  }
  for (auto& [name, file] : left) {
    auto restored = std::make_shared<SimulatedFile>();
    restored->kept = file->kept;
    for (const SimulatedFile::Change& change : file->unsynced) {
      for (const SimulatedFile::Change& sector : SectorsOf(change)) {
        if (survives()) Apply(restored->kept, sector);
      }
    }
    restored->seen = restored->kept;
    file = std::move(restored);
  }
  m_seen = left;
  m_kept = std::move(left);
  ++m_generation;
  m_calls = 0;
  m_failAt = m_lossAt = ~std::uint64_t{0};
  m_hasFailed = false;
  m_isFull = false;
}

void SimulatedDisk::StartWith(const std::string& name, const std::string& bytes) {
  m_seen.clear();
  m_kept.clear();
  Add(name, bytes);
}

void SimulatedDisk::Add(const std::string& name, const std::string& bytes) {
  m_seen[name] = m_kept[name] = std::make_shared<SimulatedFile>(SimulatedFile{bytes, bytes, {}});
}

}  // namespace TalVcs::Testing
