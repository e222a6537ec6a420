#include "common/image_blocks.h"

namespace zrnhost
{

char imageLetter(int position, int count, int sensorCount)
{
    if (count == 1) {
        return sensorCount == 1 ? 'B' : 'A';
    }
    return position == 0 ? 'A' : 'B';
}

} // namespace zrnhost
