// The sizes that programs were compiled with. CONTRIBUTING.md states which version a change raises.

#include "platform/diagnostic_channel.h"
#include "platform/file_stream.h"
#include "platform/file_system_service.h"
#include "platform/path.h"
#include "platform/platform_info.h"
#include "platform/system_locale_service.h"
#include "platform/text_conversion.h"
#include "utilities/input_file_parser.h"
#include "utilities/installer_exception.h"
#include "utilities/interrupt.h"
#include "utilities/logger.h"
#include "utilities/sandbox_workflow_detector.h"
#include "utilities/version_comparator.h"

namespace install::cpputil {

#ifdef __x86_64__
static_assert(sizeof(DiagnosticChannel) == 24);
static_assert(sizeof(FileSystemService) == 1);
static_assert(sizeof(InputFileParser) == 1);
static_assert(sizeof(InputFileStream) == 4152);
static_assert(sizeof(InstallerException) == 144);
static_assert(sizeof(OutputFileStream) == 4);
static_assert(sizeof(Path) == 64);
static_assert(sizeof(PlatformInfo) == 96);
static_assert(sizeof(SandboxWorkflowDetector) == 8);
static_assert(sizeof(SystemLocaleService) == 64);
static_assert(sizeof(TextConversion) == 1);
static_assert(sizeof(TextConversionError) == 16);
static_assert(sizeof(VersionComparator) == 8);
static_assert(sizeof(interrupt::Exception) == 16);
static_assert(sizeof(logger::Logger) == 1);
#endif

}  // namespace install::cpputil
