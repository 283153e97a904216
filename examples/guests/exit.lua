-- Ends the process.

os.exit(1)
