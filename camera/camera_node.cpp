#include "camera_node.h"

void NodeReference::release(CameraNode* node)
{
    if (node && --node->references == 0) {
        delete node;
    }
}
