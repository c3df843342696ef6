// Keeps the records of pieces until they are built: in memory, or in a temporary file.
#include "host/build/PieceStore.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "OOCPointCloud/support/SystemErrors.h"

namespace tarnhost {

namespace {

using Bytes = std::vector<std::uint8_t>;

class MemoryPieceStore final : public PieceStore {
 public:
  explicit MemoryPieceStore(std::vector<std::size_t> expectedBytes)
      : expectedBytes_(std::move(expectedBytes)), pieces_(expectedBytes_.size()) {}

  Outcome Append(std::uint32_t piece, std::span<const std::uint8_t> records) override {
    Bytes& bytes = pieces_[piece];
    if (bytes.capacity() == 0) bytes.reserve(expectedBytes_[piece]);
    bytes.insert(bytes.end(), records.begin(), records.end());
    return Outcome::Success();
  }
  Outcome Finish() override { return Outcome::Success(); }
  Outcome Load(std::uint32_t piece, Bytes& /*scratch*/,
               std::span<const std::uint8_t>& records) const override {
    records = pieces_[piece];
    return Outcome::Success();
  }
  void Drop(std::uint32_t piece) override { Bytes().swap(pieces_[piece]); }

 private:
  std::vector<std::size_t> expectedBytes_;
  std::vector<Bytes> pieces_;
};

class FilePieceStore final : public PieceStore {
 public:
  FilePieceStore(int file, std::filesystem::path path, std::size_t pieceCount,
                 std::size_t bufferBytes)
      : file_(file),
        path_(std::move(path)),
        bufferBytes_(bufferBytes),
        buffers_(pieceCount),
        chunks_(pieceCount) {}
  ~FilePieceStore() override { ::close(file_); }

  Outcome Append(std::uint32_t piece, std::span<const std::uint8_t> records) override {
    Bytes& buffer = buffers_[piece];
    buffer.insert(buffer.end(), records.begin(), records.end());
    return buffer.size() < bufferBytes_ ? Outcome::Success() : Flush(piece);
  }

  Outcome Finish() override {
    for (std::uint32_t piece = 0; piece < buffers_.size(); ++piece) {
      if (Outcome outcome = Flush(piece); !outcome.Ok()) return outcome;
    }
    return Outcome::Success();
  }

  Outcome Load(std::uint32_t piece, Bytes& scratch,
               std::span<const std::uint8_t>& records) const override {
    std::size_t bytes = 0;
    for (const Chunk& chunk : chunks_[piece]) bytes += chunk.bytes;
    scratch.resize(bytes);
    records = scratch;
    std::uint8_t* to = scratch.data();
    for (const Chunk& chunk : chunks_[piece]) {
      if (Outcome outcome = ReadChunk(chunk, to); !outcome.Ok()) return outcome;
      to += chunk.bytes;
    }
    return Outcome::Success();
  }

  void Drop(std::uint32_t /*piece*/) override {}  // the file goes as a whole

 private:
  struct Chunk {
    std::uint64_t offset;
    std::size_t bytes;
  };

  [[nodiscard]] Outcome Fail(int error) const {
    return Outcome::FromCode(oocpc::ResultFromErrno(error), path_.string());
  }

  Outcome Flush(std::uint32_t piece) {
    Bytes& buffer = buffers_[piece];
    if (buffer.empty()) return Outcome::Success();
    for (std::size_t done = 0; done < buffer.size();) {
      const ssize_t written = ::write(file_, buffer.data() + done, buffer.size() - done);
      if (written < 0 && errno == EINTR) continue;
      if (written < 0) return Fail(errno);
      done += static_cast<std::size_t>(written);
    }
    chunks_[piece].push_back({end_, buffer.size()});
    end_ += buffer.size();
    Bytes().swap(buffer);
    return Outcome::Success();
  }

  Outcome ReadChunk(const Chunk& chunk, std::uint8_t* to) const {
    for (std::size_t done = 0; done < chunk.bytes;) {
      const ssize_t read =
          ::pread(file_, to + done, chunk.bytes - done, static_cast<off_t>(chunk.offset + done));
      if (read < 0 && errno == EINTR) continue;
      if (read <= 0) return Fail(read < 0 ? errno : EIO);
      done += static_cast<std::size_t>(read);
    }
    return Outcome::Success();
  }

  int file_;
  std::filesystem::path path_;
  std::size_t bufferBytes_;
  std::vector<Bytes> buffers_;
  std::vector<std::vector<Chunk>> chunks_;
  std::uint64_t end_ = 0;
};

}  // namespace

std::unique_ptr<PieceStore> MakeMemoryPieceStore(std::vector<std::size_t> expectedBytes) {
  return std::make_unique<MemoryPieceStore>(std::move(expectedBytes));
}

Outcome MakeFilePieceStore(const std::filesystem::path& folder, std::size_t pieceCount,
                           std::size_t bufferBytes, std::unique_ptr<PieceStore>& store) {
  const std::filesystem::path path = folder / "pieces.tmp";
  const int file = ::open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
  if (file < 0) return Outcome::FromCode(oocpc::ResultFromErrno(errno), path.string());
  // Without a name it is gone with the process, however that ends.
  ::unlink(path.c_str());
  store = std::make_unique<FilePieceStore>(file, path, pieceCount, bufferBytes);
  return Outcome::Success();
}

}  // namespace tarnhost
