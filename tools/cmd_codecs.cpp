// kelp codecs: the codec plug-ins installed beside the library, as a manager sees them.
#include <kelp/kelp.h>

#include <cstdio>
#include <cstring>
#include <string>

#include "cli.h"
#include "commands.h"

namespace {

std::string FourccText(uint32_t fcc) {
    std::string s;
    for (int i = 0; i < 4; ++i) {
        const char c = char((fcc >> (8 * i)) & 0xFF);
        s += (c >= 32 && c < 127) ? c : '?';
    }
    return s;
}

std::string Narrow(const wchar_t* w) {
    std::string s;
    for (; *w; ++w)
        s += (*w < 128) ? char(*w) : '?';
    return s;
}

int RunCodecs() {
    kelp::ICodecManager* manager = kelp::KXCODECCreateCodecManager();
    if (!manager) {
        std::fprintf(stderr, "kelp codecs: cannot make a codec manager\n");
        return 1;
    }
    manager->Init(0, nullptr);
    const uint32_t count = manager->GetCodecCount();
    std::printf("plug-ins from %s: %u codec%s\n", Narrow(kelp::GetKELPModulePath()).c_str(), count,
                count == 1 ? "" : "s");
    if (count) std::printf("%-6s %8s  %-14s %s\n", "FOURCC", "PRIORITY", "NAME", "DOES");
    for (uint32_t i = 0; i < count; ++i) {
        kelp::ICodec* codec = manager->GetCodec(i);
        kelp::KXCODECDESC desc;
        std::memset(&desc, 0, sizeof(desc));
        desc.dwSize = sizeof(desc);
        const bool described =
            codec->Configure(kelp::KXCODEC_CFG_DESCRIBE, reinterpret_cast<uintptr_t>(&desc),
                             sizeof(desc)) == KX_OK;
        const std::string fcc = described ? FourccText(desc.fccCodec) : "-";
        std::printf("%-6s %8u  %-14s ", fcc.c_str(), codec->GetPriority(),
                    described ? desc.szName : "");
        if (!described) {
            std::printf("(does not describe itself)\n");
            continue;
        }
        const std::string pad(32, ' '); // under the column of what it does
        bool first = true;
        if (desc.dwCaps & kelp::KXCODEC_CAN_DECOMPRESS) {
            std::printf("decompresses %s\n", desc.szDecompress);
            first = false;
        }
        if (desc.dwCaps & kelp::KXCODEC_CAN_COMPRESS)
            std::printf("%scompresses %s\n", first ? "" : pad.c_str(), desc.szCompress);
        else if (first)
            std::printf("\n");
    }
    manager->Release();
    return 0;
}

} // namespace

void AddCodecsCommand(CLI::App& app) {
    CLI::App* cmd = kelptool::AddCommand(app, "codecs", "List the codec plug-ins and what they do.",
                                         [](const CLI::App&) { return RunCodecs(); });
    kelptool::Describe(*cmd,
                       "Lists the codecs of the plug-ins (*.cdc) beside the library, highest\n"
                       "priority first: format code, priority (higher is asked first), name,\n"
                       "what each decompresses and compresses. A codec that does not describe\n"
                       "itself is listed with '-' and its priority only.");
}
