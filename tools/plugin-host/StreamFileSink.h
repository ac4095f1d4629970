// StreamFileSink.h - the platform's stream data callback as the live and
// playback commands need it: counts the blocks by type and writes HEAD and DATA
// to a file (together an MPEG-2 Program Stream any player opens).
#pragma once

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <mutex>

#include "netcam_plugin.h"

struct StreamFileSink {
  std::mutex mutex;  // orders file writes
  FILE* file = nullptr;
  bool writeFailed = false;
  std::atomic<uint64_t> infoBlocks{0}, headBlocks{0}, dataBlocks{0}, endBlocks{0}, bytes{0};

  static int32_t OnBlock(void* /*handle*/, int32_t type, const PluginStreamBlock* block, void* user) {
    auto* sink = static_cast<StreamFileSink*>(user);
    switch (type) {
      case PLUGIN_STREAM_INFO:
        ++sink->infoBlocks;
        return 0;
      case PLUGIN_STREAM_END:
        ++sink->endBlocks;
        return 0;
      case PLUGIN_STREAM_HEAD:
        ++sink->headBlocks;
        break;
      case PLUGIN_STREAM_DATA:
        ++sink->dataBlocks;
        break;
      default:
        return 0;
    }
    if (block == nullptr || block->data == nullptr || block->length == 0) return 0;
    sink->bytes += block->length;
    std::lock_guard<std::mutex> lock(sink->mutex);
    if (sink->file != nullptr && std::fwrite(block->data, 1, block->length, sink->file) != block->length)
      sink->writeFailed = true;
    return 0;
  }
  // The closing report of the live and playback commands.
  void PrintSummary(const char* output) const {
    std::printf("blocks: info %llu, head %llu, data %llu, end %llu; %llu bytes written to %s\n",
                static_cast<unsigned long long>(infoBlocks.load()), static_cast<unsigned long long>(headBlocks.load()),
                static_cast<unsigned long long>(dataBlocks.load()), static_cast<unsigned long long>(endBlocks.load()),
                static_cast<unsigned long long>(bytes.load()), output);
  }
  // Closes the file once no block can be written to it any more.
  void Close() {
    std::lock_guard<std::mutex> lock(mutex);
    if (file != nullptr) std::fclose(file);
    file = nullptr;
  }
};
