// Placeholder replaced below once the stand-in app exists.
