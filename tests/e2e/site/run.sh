#!/bin/sh
echo "a script the editor must never start"
