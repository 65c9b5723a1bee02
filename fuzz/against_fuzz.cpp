// Arbitrary bytes as the system blob of --against: a user file (the example
// update) is compiled with that database answering every query.
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "bridge/blob_database.h"
#include "bridge/display_control.h"
#include "fuzz/fuzz_support.h"
#include "model/file_kind.h"

namespace {

constexpr char kUserFile[] = R"(<?xml version="1.0" encoding="utf-8"?>
<customisations Format="1" Content="fuzzed user set">
	<profiles>
		<profile Area="Lumen3D" Usage="Balanced">
			<value Property="AnisoLevel">0x4</value>
			<value Property="TexFilter">High</value>
		</profile>
		<profile Area="HYDynamic" Usage="Quiet"><value Property="PowerPolicy">2</value></profile>
	</profiles>
	<applications>
		<application Title="Tidewater" File="tidewater.exe"><use Area="Lumen3D">Balanced</use></application>
		<application Title="Orbit" File="orbit.exe"><use Area="VideoPost">CinemaLook</use></application>
	</applications>
</customisations>
)";

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const auto database = qk::DecodeBlobDatabase({data, size});
    if (!database) {
        return 0;
    }
    qk::AnswerFromBlob(&*database);
    qk::fuzz::CompileXml(reinterpret_cast<const std::uint8_t*>(kUserFile), std::strlen(kUserFile),
                         qk::kUserFile);
    qk::AnswerFromBlob(nullptr);
    return 0;
}
