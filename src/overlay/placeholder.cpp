// The overlay component; its code arrives with its own change.
