// scene: the simulated camera's picture, a view into a wide generated scene
// cut by the PTZ head's position, with the camera's name, channel, time and
// head position burnt in. Shared by the stream server and the snapshot program.
#pragma once
#include <stddef.h>

struct SceneView {
    double pan, tilt;   // degrees, as the head reports them
    double zoom;        // 0 (widest) to 1 (narrowest)
    int motion;         // an object walks through the scene
    const char* name;   // the camera's name
    int channel;
};

// One camera as the picture sees it: its root, name and device-state words.
struct SceneCamera {
    char root[400];
    char name[64];
    int* words;         // attached on first use; 0 while the segment is missing
};

// Fills a camera's name from its settings; keeps root as given.
void loadSceneCamera(SceneCamera* camera, const char* root);
// The head's present position and the motion state of the camera.
void currentView(SceneCamera* camera, int channel, SceneView* view);
// An I420 picture (width and height even) of size sceneFrameSize().
size_t sceneFrameSize(int width, int height);
void renderScene(unsigned char* frame, int width, int height, const SceneView& view, double now);
